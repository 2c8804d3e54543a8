#include <gtest/gtest.h>

#include "filter/FilterSetJson.h"

namespace quorin::filter {
namespace {

NamedFilter everyKindOfRule() {
  NamedFilter filter;
  filter.name = "Errors \"around\" checkout ✓";
  search::SearchOptions query;
  query.query = "checkout\tfailed";
  query.caseSensitive = false;
  query.wholeWord = true;
  filter.options.rules = {
      {true, RuleAction::include, PatternCondition{query}},
      {false, RuleAction::exclude, PatternCondition{{"^DEBUG\\b", true, false, true}}},
      {true, RuleAction::include, LevelCondition{logs::Level::error}},
      {true, RuleAction::exclude, TimeWindowCondition{"2026-03-20 12:00", ""}},
      {true, RuleAction::include, BookmarkedCondition{}},
  };
  filter.options.contextBefore = 2;
  filter.options.contextAfter = 10'000;
  filter.options.wholeMessages = true;
  return filter;
}

TEST(FilterSetJson, ExportedSetAndListReadBackEqual) {
  const NamedFilter filter = everyKindOfRule();
  const auto one = importFilterSet(exportFilterSet(filter));
  ASSERT_TRUE(one.has_value()) << one.error().describe();
  EXPECT_EQ(*one, filter);

  const std::vector<NamedFilter> list = {filter, NamedFilter{"empty", {}}};
  const auto many = namedFiltersFromJson(namedFiltersToJson(list));
  ASSERT_TRUE(many.has_value()) << many.error().describe();
  EXPECT_EQ(*many, list);
}

TEST(FilterSetJson, DefaultsAndUnknownKeysAreAccepted) {
  // A file written by hand, or by a later version that added keys.
  const auto set = importFilterSet(R"({"quorinFilterSet": 1, "name": "x", "comment": "mine",
      "rules": [{"pattern": {"text": "ERROR", "future": 1}}]})");
  ASSERT_TRUE(set.has_value()) << set.error().describe();
  ASSERT_EQ(set->options.rules.size(), 1u);
  const FilterRule& rule = set->options.rules[0];
  EXPECT_TRUE(rule.enabled);
  EXPECT_EQ(rule.action, RuleAction::include);
  EXPECT_EQ(std::get<PatternCondition>(rule.condition).query.query, "ERROR");
  EXPECT_FALSE(std::get<PatternCondition>(rule.condition).query.regex);
  EXPECT_EQ(set->options.contextAfter, 0);
}

TEST(FilterSetJson, RefusesWhatItCannotTrustWithAReason) {
  const struct {
    const char* json;
    const char* reason;
  } cases[] = {
      {"", "not valid JSON (byte 1)"},
      {"[1]", "not a JSON object"},
      {R"({"name": "x", "rules": []})", "missing \"quorinFilterSet\""},
      {R"({"quorinFilterSet": 2, "name": "x", "rules": []})",
       "version 2 is not one this version of Quorin reads"},
      {R"({"quorinFilterSet": 1, "name": 5, "rules": []})", "\"name\" has the wrong type"},
      {R"({"quorinFilterSet": 1, "name": "x", "rules": [{"minimumLevel": "loud"}]})",
       "unknown level \"loud\""},
      {R"({"quorinFilterSet": 1, "name": "x", "rules": [{"action": "hide", "bookmarked": true}]})",
       "unknown action \"hide\""},
      {R"({"quorinFilterSet": 1, "name": "x", "rules": [{"enabled": true}]})",
       "a rule has no pattern, minimumLevel, timeWindow or bookmarked"},
      {R"({"quorinFilterSet": 1, "name": "x", "rules": [], "contextBefore": 10001})",
       "\"contextBefore\" must be 0 to 10000"},
      {R"({"quorinFilterSet": 1, "name": "x", "rules": [], "contextAfter": 1e300})",
       "\"contextAfter\" is not a whole number in range"},
      {R"({"quorinFilterSet": 4294967297, "name": "x", "rules": []})",
       "\"quorinFilterSet\" is not a whole number in range"},
  };
  for (const auto& c : cases) {
    const auto set = importFilterSet(c.json);
    ASSERT_FALSE(set.has_value()) << c.json;
    EXPECT_EQ(set.error().describe(), std::string("Not a Quorin filter set: ") + c.reason) << c.json;
  }
  EXPECT_FALSE(namedFiltersFromJson(R"({"quorinFilterSets": 1, "sets": [{"name": "x"}]})").has_value());
}

}  // namespace
}  // namespace quorin::filter
