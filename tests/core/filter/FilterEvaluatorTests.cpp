#include <gtest/gtest.h>

#include <random>
#include <regex>
#include <string>
#include <vector>

#include "filter/FilterEvaluator.h"
#include "filter/FilterTestSupport.h"
#include "logs/Timestamp.h"
#include "search/ByteSearch.h"
#include "search/SearchTestSupport.h"

namespace quorin::filter {
namespace {

using logs::Level;

bool contains(std::string line, std::string needle, bool caseSensitive, bool wholeWord) {
  line.resize(std::min<size_t>(line.size(), kMaxLineBytes));
  if (!caseSensitive) {
    line = search::asciiLower(line);
    needle = search::asciiLower(needle);
  }
  for (size_t at = line.find(needle); at != std::string::npos; at = line.find(needle, at + 1)) {
    const bool bounded = (at == 0 || !search::isWordByte(line[at - 1])) &&
                         (at + needle.size() >= line.size() || !search::isWordByte(line[at + needle.size()]));
    if (!wholeWord || bounded) return true;
  }
  return false;
}

// The slow reference: every rule on every line, as the documentation states it.
std::vector<bool> reference(const Doc& doc, const FilterOptions& options, const std::vector<int64_t>& marks) {
  const auto n = static_cast<int64_t>(doc.lines.size());
  std::vector<Level> level(n);
  std::vector<int64_t> micros(n, logs::kNoTime);
  std::vector<bool> head(n);
  logs::SeverityRules rules;
  for (int64_t i = 0; i < n; ++i) {
    const auto time = logs::parseTimestamp(logs::TimestampFormat::iso8601, doc.lines[i], 2026);
    head[i] = time.has_value();
    if (head[i]) {
      level[i] = rules.detect(doc.lines[i], static_cast<size_t>(time->end));
      micros[i] = time->micros;
    } else if (i > 0) {
      level[i] = level[i - 1], micros[i] = micros[i - 1];
    } else {
      level[i] = rules.detect(doc.lines[i], 0);
    }
  }
  const auto compiled = compileFilter(options);
  std::vector<bool> shown(n);
  for (int64_t i = 0; i < n; ++i) {
    bool anyInclude = false, included = false, excluded = false, constraints = true;
    for (size_t r = 0; r < options.rules.size(); ++r) {
      const FilterRule& rule = options.rules[r];
      if (!rule.enabled || !compiled->ruleErrors[r].empty()) continue;
      const bool exclude = rule.action == RuleAction::exclude;
      bool hit = false;
      if (const auto* p = std::get_if<PatternCondition>(&rule.condition)) {
        const auto& q = p->query;
        if (q.regex) {
          std::string line = doc.lines[i].substr(0, kMaxLineBytes);
          hit = std::regex_search(line, std::regex("id=[0-9]{3}\\b"));
        } else {
          hit = contains(doc.lines[i], q.query, q.caseSensitive, q.wholeWord);
        }
      } else if (const auto* l = std::get_if<LevelCondition>(&rule.condition)) {
        constraints &= exclude ? level[i] < l->level : level[i] >= l->level;
        continue;
      } else if (std::holds_alternative<TimeWindowCondition>(rule.condition)) {
        continue;  // below, from the compiled windows
      } else {
        hit = std::binary_search(marks.begin(), marks.end(), i);
      }
      if (exclude) {
        excluded |= hit;
      } else {
        anyInclude = true;
        included |= hit;
      }
    }
    for (const CompiledWindow& window : compiled->windows) {
      const WindowMicros w = windowMicros(window, 0);
      const bool inside = micros[i] != logs::kNoTime && micros[i] >= w.from && micros[i] <= w.to;
      constraints &= inside != w.exclude;
    }
    shown[i] = (!anyInclude || included) && !excluded && constraints;
  }
  if (options.wholeMessages) {
    for (int64_t i = 0; i < n;) {
      int64_t end = i + 1;
      while (end < n && !head[end]) ++end;
      if (std::find(shown.begin() + i, shown.begin() + end, true) != shown.begin() + end) {
        std::fill(shown.begin() + i, shown.begin() + end, true);
      }
      i = end;
    }
  }
  std::vector<bool> widened(n);
  for (int64_t i = 0; i < n; ++i) {
    if (!shown[i]) continue;
    for (int64_t j = std::max<int64_t>(0, i - options.contextBefore);
         j <= std::min(n - 1, i + options.contextAfter); ++j)
      widened[j] = true;
  }
  return widened;
}

TEST(FilterEvaluator, AgreesWithALineByLineReferenceOnRandomLogsAndRules) {
  std::mt19937 random(4242);
  dispatch::WorkerPool pool(2);
  auto logData = std::make_shared<logs::LogIndexData>();
  logData->format = logs::TimestampFormat::iso8601;
  logData->firstYear = 2026;
  for (int round = 0; round < 60; ++round) {
    const Doc doc = randomLog(random);
    const search::SearchDoc searchDoc(doc.text);
    const FilterOptions options = randomOptions(random);
    std::vector<int64_t> marks;
    for (int64_t i = 0; i < static_cast<int64_t>(doc.lines.size()); ++i) {
      if (random() % 10 == 0) marks.push_back(i);
    }
    const auto compiled = compileFilter(options);
    if (!compiled) continue;  // a window whose end is before its start
    FilterContext context{logData, {}, std::make_shared<const std::vector<int64_t>>(marks)};
    FilterLimits limits;
    limits.chunkLines = 64;
    limits.windowBytes = 64;
    limits.maxLineBytes = kMaxLineBytes;
    const FilterResult result =
        evaluateFilter(*compiled, {searchDoc.table->snapshot(), searchDoc.index->snapshot()}, context, limits,
                       nullptr, nullptr, &pool);
    const std::vector<bool> expected = reference(doc, options, marks);
    ASSERT_TRUE(result.projection->isComplete());
    ASSERT_EQ(result.projection->linesEvaluated(), static_cast<int64_t>(expected.size()))
        << "round " << round;
    for (size_t i = 0; i < expected.size(); ++i) {
      ASSERT_EQ(result.projection->isVisible(static_cast<int64_t>(i)), expected[i])
          << "round " << round << " line " << i << ": " << doc.lines[i];
    }
  }
}

// Lines the walk after a listed message reads in more than one piece: one
// longer than the bytes a line is parsed in, and a last line without a
// break; and sometimes CR line breaks, where a line may hold an LF.
void stretch(Doc& doc, std::mt19937& random) {
  if (doc.lines.size() > 2 && random() % 2 == 0) {
    const auto at = static_cast<std::ptrdiff_t>(1 + random() % (doc.lines.size() - 2));
    const std::string head = random() % 2 ? "2026-03-20 23:59:59 ERROR " : "";
    doc.lines.insert(doc.lines.begin() + at, head + std::string(4000 + random() % 5000, 'z'));
  }
  if (doc.lines.size() > 1 && random() % 2 == 0) doc.lines.pop_back();
  const bool cr = random() % 4 == 0;
  if (cr && doc.lines.size() > 3) doc.lines[2] += "\nafter an LF";
  doc.text.clear();
  for (size_t i = 0; i < doc.lines.size(); ++i) doc.text += (i > 0 ? (cr ? "\r" : "\n") : "") + doc.lines[i];
}

TEST(FilterEvaluator, LevelsFromTheLogIndexMatchTheReference) {
  std::mt19937 random(99);
  dispatch::WorkerPool pool(2);
  for (int round = 0; round < 60; ++round) {
    Doc doc = randomLog(random);
    stretch(doc, random);
    const search::SearchDoc searchDoc(doc.text);
    const logs::LogSource source{searchDoc.table->snapshot(), searchDoc.index->snapshot()};
    FilterOptions options;
    options.rules = {{true, RuleAction::include, LevelCondition{static_cast<Level>(5 + random() % 4)}}};
    options.contextAfter = random() % 2;
    auto data = std::make_shared<const logs::LogIndexData>(logs::buildLogIndex(
        source, {}, {.modificationYear = 2026, .chunkLines = logs::kLogBlockLines}, &pool));
    if (random() % 2) options.rules.push_back({true, RuleAction::exclude, LevelCondition{Level::fatal}});
    const std::vector<bool> expected = reference(doc, options, {});
    // Both ways of using the index: its lists read directly, and its levels under a scan in order.
    for (const int64_t sparse : {int64_t{1}, int64_t{0}}) {
      FilterLimits limits;
      limits.chunkLines = 64;
      limits.sparseAlertLines = sparse;
      const auto result =
          evaluateFilter(*compileFilter(options), source, {data}, limits, nullptr, nullptr, &pool);
      ASSERT_EQ(result.projection->linesEvaluated(), static_cast<int64_t>(expected.size()));
      for (size_t i = 0; i < expected.size(); ++i) {
        ASSERT_EQ(result.projection->isVisible(static_cast<int64_t>(i)), expected[i])
            << "round " << round << " sparse " << sparse << " line " << i << ": " << doc.lines[i];
      }
    }
  }
}

}  // namespace
}  // namespace quorin::filter
