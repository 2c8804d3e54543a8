#pragma once

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "filter/FilterOptions.h"

namespace quorin::filter {

// Lines longer than this are examined in their first bytes only (tests set
// FilterLimits::maxLineBytes to it so that random logs hold such lines).
inline constexpr int64_t kMaxLineBytes = 300;

using logs::Level;

// The document as lines, with what the filter needs to know about each.
struct Doc {
  std::string text;
  std::vector<std::string> lines;
};

inline Doc randomLog(std::mt19937& random) {
  static const char* words[] = {"alpha",  "Beta",  "GAMMA", "error",   "warn",
                                "id=123", "id=98", "x",     "checkout"};
  static const char* levels[] = {"TRACE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL", "", "notice"};
  Doc doc;
  const int count = static_cast<int>(random() % 400);
  int minute = 0;
  for (int i = 0; i < count; ++i) {
    std::string line;
    if (random() % 4 != 0) {  // a head line; otherwise a continuation
      minute += static_cast<int>(random() % 3);
      char stamp[32];
      std::snprintf(stamp, sizeof stamp, "2026-03-20 %02d:%02d:%02d ", 10 + minute / 60, minute % 60,
                    static_cast<int>(random() % 60));
      line = std::string(stamp) + levels[random() % 8];
    }
    for (int w = static_cast<int>(random() % 5); w > 0; --w) line += std::string(" ") + words[random() % 9];
    if (random() % 50 == 0) line += std::string(static_cast<size_t>(random() % 600), 'z') + " error";
    doc.lines.push_back(line);
  }
  for (const auto& line : doc.lines) doc.text += line + "\n";
  doc.lines.push_back("");  // after the final line break
  return doc;
}

inline FilterOptions randomOptions(std::mt19937& random) {
  static const char* literals[] = {"alpha", "beta", "GAMMA", "error", "id=1", "x", "checkout", "zzz"};
  FilterOptions options;
  for (int r = static_cast<int>(random() % 4); r > 0; --r) {
    FilterRule rule;
    rule.enabled = random() % 6 != 0;
    rule.action = random() % 3 == 0 ? RuleAction::exclude : RuleAction::include;
    switch (random() % 6) {
      case 0:
      case 1:
        rule.condition = PatternCondition{{literals[random() % 8], random() % 2 == 0, random() % 3 == 0}};
        break;
      case 2: rule.condition = PatternCondition{{"id=\\d{3}\\b", true, false, true}}; break;
      case 3: rule.condition = LevelCondition{static_cast<Level>(1 + random() % 8)}; break;
      case 4:
        rule.condition = TimeWindowCondition{"2026-03-20 10:" + std::to_string(10 + random() % 40), ""};
        if (random() % 2) std::get<TimeWindowCondition>(rule.condition).to = "2026-03-20 11:30";
        break;
      default: rule.condition = BookmarkedCondition{};
    }
    options.rules.push_back(rule);
  }
  options.contextBefore = random() % 4;
  options.contextAfter = random() % 3;
  options.wholeMessages = random() % 2;
  return options;
}

}  // namespace quorin::filter
