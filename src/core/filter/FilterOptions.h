#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "logs/GoToTarget.h"
#include "logs/Severity.h"
#include "search/SearchTypes.h"

namespace quorin::filter {

// Lines matching a query.
struct PatternCondition {
  search::SearchOptions query;
  bool operator==(const PatternCondition&) const = default;
};

// Lines whose message is at `level` or above.
struct LevelCondition {
  logs::Level level = logs::Level::warning;
  bool operator==(const LevelCondition&) const = default;
};

// Lines whose message time lies in [from, to]. The edges are kept as the
// user typed them ("2026-03-20 12:00"; empty for an open end) and parsed
// with the Go to Time forms when the filter is compiled.
struct TimeWindowCondition {
  std::string from;
  std::string to;
  bool operator==(const TimeWindowCondition&) const = default;
};

// The document's bookmarked lines (the caller hands them in).
struct BookmarkedCondition {
  bool operator==(const BookmarkedCondition&) const = default;
};

using Condition = std::variant<PatternCondition, LevelCondition, TimeWindowCondition, BookmarkedCondition>;

enum class RuleAction : uint8_t { include, exclude };

// One rule of a filter. Pattern and bookmark rules include or exclude;
// level and time rules are constraints every shown line meets (an exclude
// level rule keeps lines below the level, an exclude window hides it).
struct FilterRule {
  bool enabled = true;
  RuleAction action = RuleAction::include;
  Condition condition;
  bool operator==(const FilterRule&) const = default;
};

inline constexpr int64_t kMaxContextLines = 10'000;

// What a filtered view asks for. Equality is by value: a projection records
// the options it was computed with, and a named filter stores them.
struct FilterOptions {
  std::vector<FilterRule> rules;
  int64_t contextBefore = 0;  // lines, 0…kMaxContextLines
  int64_t contextAfter = 0;
  bool wholeMessages = false;
  bool operator==(const FilterOptions&) const = default;

  // Whether any rule is enabled: a filter without one shows every line.
  bool hasEnabledRule() const;
};

// A filter set the user saved under a name.
struct NamedFilter {
  std::string name;
  FilterOptions options;
  bool operator==(const NamedFilter&) const = default;
};

}  // namespace quorin::filter
