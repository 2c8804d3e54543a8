#pragma once

#include <cstdint>
#include <expected>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "filter/FilterOptions.h"
#include "logs/GoToTarget.h"
#include "logs/LogIndexData.h"
#include "search/Matcher.h"

namespace quorin::filter {

// Why a filter cannot run at all; describe() is the text to show. A rule
// that is merely broken (an invalid regex) does not refuse the filter: it
// is marked in CompiledFilter::ruleErrors and left out.
struct FilterRefusal {
  std::string message;
  std::string describe() const { return message; }
};

inline constexpr const char* kWindowReversedMessage =
    "The time window ends before it begins: To is before From";
inline constexpr const char* kPatternSpansLinesMessage =
    "A filter pattern cannot hold a line break: filters keep or hide whole lines";

// A time-window rule with its edges parsed; an absent edge is open.
struct CompiledWindow {
  std::optional<logs::TimeTarget> from;
  std::optional<logs::TimeTarget> to;
  bool exclude = false;
};

// A filter ready to evaluate: every pattern compiled once, include literals
// that can share one scan merged into one many-literal matcher. Immutable;
// shared by every chunk of an evaluation.
struct CompiledFilter {
  FilterOptions options;
  // One per rule: empty when the rule works (or is disabled), else why it
  // is left out ("Invalid regex: …").
  std::vector<std::string> ruleErrors;
  std::vector<std::shared_ptr<const search::Matcher>> includes;
  std::vector<std::shared_ptr<const search::Matcher>> excludes;
  bool includeBookmarked = false;
  bool excludeBookmarked = false;
  // Messages must be at or above minimumLevel and below belowLevel (none: no bound).
  logs::Level minimumLevel = logs::Level::none;
  logs::Level belowLevel = logs::Level::none;
  std::vector<CompiledWindow> windows;

  // Whether any working include rule exists: without one every line is a candidate.
  bool hasIncludes() const { return !includes.empty() || includeBookmarked; }
  bool needsLevels() const { return minimumLevel != logs::Level::none || belowLevel != logs::Level::none; }
  bool needsTimes() const { return !windows.empty(); }
  // Message boundaries are needed to give continuation lines their head's level and time, and for whole
  // messages.
  bool needsMessages() const { return needsLevels() || needsTimes() || options.wholeMessages; }
  // Nothing to evaluate: every line is shown.
  bool showsEverything() const;
};

std::expected<CompiledFilter, FilterRefusal> compileFilter(const FilterOptions& options);

// A window's edges in microseconds (the log's wall time, as LineTime
// counts), inclusive: an edge without seconds covers its minute, without a
// clock its day; a clock time alone takes `referenceDayMicros`' day (the
// log's first day). Open edges are INT64_MIN / INT64_MAX.
struct WindowMicros {
  int64_t from = INT64_MIN;
  int64_t to = INT64_MAX;
  bool exclude = false;
};
WindowMicros windowMicros(const CompiledWindow& window, int64_t referenceDayMicros);

}  // namespace quorin::filter
