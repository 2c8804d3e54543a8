#pragma once

#include <cstdint>
#include <expected>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "logs/Severity.h"

namespace quorin::logs {

// A user's rule: lines matching `pattern` have `level`. A literal pattern
// is a substring found without regard to ASCII case; a regex is PCRE2
// syntax over UTF-8 (Unicode classes). Level::none is allowed: it tells the
// defaults to keep out of lines that only look like they have a level.
struct SeverityRule {
  std::string pattern;
  bool regex = false;
  Level level = Level::none;
  bool operator==(const SeverityRule&) const = default;
};

// A rule whose regex does not compile; the rules in force are unchanged.
struct InvalidSeverityRegex {
  size_t rule = 0;      // index into the rules given
  std::string message;  // PCRE2's
  std::string describe() const { return "Invalid regex: " + message; }
};

// The user's rules, in order, before the default ones. detect() is const
// and safe from any number of threads. setUserRules() is for one thread
// (the main one) and must not overlap detect() on the same object: a job
// that detects in the background takes a copy, which is cheap (the
// compiled rules are shared and never change) and keeps its generation.
class SeverityRules {
 public:
  SeverityRules();

  // Replaces the user's rules and raises generation(); an empty literal
  // pattern matches nothing. A regex that does not compile refuses the
  // whole set.
  std::expected<void, InvalidSeverityRegex> setUserRules(std::vector<SeverityRule> rules);
  const std::vector<SeverityRule>& userRules() const;

  // The first user rule matching the line (its first kUserRuleWindowBytes
  // bytes, timestamp included) decides; otherwise detectLineLevel.
  Level detect(std::string_view line, size_t timestampEnd) const;

  // Raised by every change of the rules; what a result computed with them
  // records, so that it can tell it is stale.
  uint64_t generation() const { return generation_; }

  struct Compiled;

 private:
  std::shared_ptr<const Compiled> compiled_;
  uint64_t generation_ = 0;
};

// User rules look this far into a line: far enough for any prefix a
// format puts before the message, bounded for a gigabyte-long line.
constexpr size_t kUserRuleWindowBytes = 4096;

}  // namespace quorin::logs
