#include "filter/CompiledFilter.h"

#include <algorithm>
#include <tuple>

#include "search/ByteSearch.h"
#include "search/MultiLiteralMatcher.h"
#include "search/QueryText.h"
#include "search/SearchEngine.h"

namespace quorin::filter {
namespace {

constexpr int64_t kMicrosPerSecond = 1'000'000;
constexpr int64_t kMicrosPerDay = 86'400 * kMicrosPerSecond;

// Include literals that one many-literal scan can find together: plain
// text, no escapes, no line break, ASCII when case is ignored.
bool mergeable(const search::SearchOptions& query) {
  return !query.regex && !query.escapes && !query.query.empty() &&
         query.query.find_first_of("\r\n") == std::string::npos &&
         (query.caseSensitive || search::isAscii(query.query));
}

std::optional<logs::TimeTarget> edge(const std::string& text, const char* field, std::string& error) {
  if (text.find_first_not_of(" \t") == std::string::npos) return std::nullopt;
  auto parsed = logs::parseWindowEdge(text, field);
  if (!parsed) {
    error = parsed.error().message();
    return std::nullopt;
  }
  return *parsed;
}

// Orders two edges when both say as much (both dated, or both a clock alone).
bool before(const logs::TimeTarget& a, const logs::TimeTarget& b) {
  const auto key = [](const logs::TimeTarget& t) {
    return std::tuple(t.year.value_or(0), t.month.value_or(0), t.day.value_or(0), t.hour.value_or(0),
                      t.minute.value_or(0), t.second.value_or(0));
  };
  return key(a) < key(b);
}

}  // namespace

bool CompiledFilter::showsEverything() const {
  return !hasIncludes() && excludes.empty() && !excludeBookmarked && !needsLevels() && !needsTimes();
}

std::expected<CompiledFilter, FilterRefusal> compileFilter(const FilterOptions& options) {
  CompiledFilter compiled;
  compiled.options = options;
  compiled.options.contextBefore = std::clamp<int64_t>(options.contextBefore, 0, kMaxContextLines);
  compiled.options.contextAfter = std::clamp<int64_t>(options.contextAfter, 0, kMaxContextLines);
  compiled.ruleErrors.resize(options.rules.size());
  // Mergeable include literals by (fold case, whole word).
  std::vector<std::string> literals[2][2];

  for (size_t i = 0; i < options.rules.size(); ++i) {
    const FilterRule& rule = options.rules[i];
    if (!rule.enabled) continue;
    const bool exclude = rule.action == RuleAction::exclude;
    std::string error;
    if (const auto* pattern = std::get_if<PatternCondition>(&rule.condition)) {
      const search::SearchOptions& query = pattern->query;
      if (query.query.empty()) continue;
      if (!exclude && mergeable(query)) {
        literals[query.caseSensitive ? 0 : 1][query.wholeWord ? 1 : 0].push_back(query.query);
        continue;
      }
      search::PreparedQuery prepared = search::prepareQuery(query);
      if (prepared.error) {
        compiled.ruleErrors[i] = "Invalid regex: " + *prepared.error;
      } else if (prepared.spansLines) {
        compiled.ruleErrors[i] = kPatternSpansLinesMessage;
      } else if (prepared.matcher) {
        (exclude ? compiled.excludes : compiled.includes).push_back(std::move(prepared.matcher));
      }
    } else if (const auto* level = std::get_if<LevelCondition>(&rule.condition)) {
      if (level->level == logs::Level::none) continue;
      if (exclude) {
        compiled.belowLevel = compiled.belowLevel == logs::Level::none
                                  ? level->level
                                  : std::min(compiled.belowLevel, level->level);
      } else {
        compiled.minimumLevel = std::max(compiled.minimumLevel, level->level);
      }
    } else if (const auto* window = std::get_if<TimeWindowCondition>(&rule.condition)) {
      CompiledWindow w{edge(window->from, "From", error), edge(window->to, "To", error), exclude};
      if (!error.empty()) return std::unexpected(FilterRefusal{error});
      const bool comparable = w.from && w.to && w.from->year.has_value() == w.to->year.has_value();
      if (comparable && before(*w.to, *w.from)) return std::unexpected(FilterRefusal{kWindowReversedMessage});
      if (w.from || w.to) compiled.windows.push_back(w);
    } else {
      (exclude ? compiled.excludeBookmarked : compiled.includeBookmarked) = true;
    }
  }
  for (int fold = 0; fold < 2; ++fold) {
    for (int word = 0; word < 2; ++word) {
      auto& group = literals[fold][word];
      if (group.empty()) continue;
      if (group.size() == 1) {
        search::SearchOptions one{group.front(), fold == 0, word == 1};
        compiled.includes.push_back(search::prepareQuery(one).matcher);
      } else {
        compiled.includes.push_back(
            std::make_shared<search::MultiLiteralMatcher>(std::move(group), fold == 1, word == 1));
      }
    }
  }
  return compiled;
}

WindowMicros windowMicros(const CompiledWindow& window, int64_t referenceDayMicros) {
  const auto micros = [&](const logs::TimeTarget& t, bool end) {
    int64_t day = referenceDayMicros - referenceDayMicros % kMicrosPerDay;
    if (referenceDayMicros < 0 && referenceDayMicros % kMicrosPerDay != 0) day -= kMicrosPerDay;
    if (t.year) day = logs::daysFromCivil(*t.year, *t.month, *t.day) * kMicrosPerDay;
    if (!t.hour) return end ? day + kMicrosPerDay - 1 : day;
    int64_t at = day + (*t.hour * 3600 + *t.minute * 60 + t.second.value_or(0)) * kMicrosPerSecond;
    if (end) at += (t.second ? kMicrosPerSecond : 60 * kMicrosPerSecond) - 1;
    return at;
  };
  WindowMicros result;
  result.exclude = window.exclude;
  if (window.from) result.from = micros(*window.from, false);
  if (window.to) result.to = micros(*window.to, true);
  return result;
}

}  // namespace quorin::filter
