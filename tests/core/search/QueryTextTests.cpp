#include <gtest/gtest.h>

#include "search/QueryText.h"

namespace quorin::search {
namespace {

TEST(SearchQueryTextTest, ExpandsEscapesAndKeepsWhatItCannotRead) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"a\\nb\\r\\t", "a\nb\r\t"},
      {"\\\\n", "\\n"},  // an escaped backslash, then a plain n
      {std::string("\\0x"), std::string("\0x", 2)},
      {"\\x41\\u00e9\\u20AC", "A\xC3\xA9\xE2\x82\xAC"},
      {"\\x4", "\\x4"},        // too short
      {"\\xZZ", "\\xZZ"},      // not hex
      {"\\uD800", "\\uD800"},  // a surrogate is no scalar
      {"\\u00é", "\\u00é"},    // four characters, one not hex
      {"\\q\\", "\\q\\"},      // unknown escape, trailing backslash
  };
  for (const auto& [typed, expanded] : cases) EXPECT_EQ(expandEscapes(typed), expanded) << typed;
}

TEST(SearchQueryTextTest, ReadsPlainAlternationsOfLiterals) {
  using List = std::vector<std::string>;
  EXPECT_EQ(literalAlternatives("ERROR|WARN"), (List{"ERROR", "WARN"}));
  EXPECT_EQ(literalAlternatives("a\\.b|c\\|d|\\/\\-"), (List{"a.b", "c|d", "/-"}));
  EXPECT_EQ(literalAlternatives("été|x y"), (List{"été", "x y"}));
  for (const char* pattern :
       {"a||b", "|a", "a|", "a\\d", "a\\", "a.b", "(a)", "a*", "^a", "a$", "[a]", "a{2}", "a\tb", "a\\bb"}) {
    EXPECT_FALSE(literalAlternatives(pattern)) << pattern;
  }
}

}  // namespace
}  // namespace quorin::search
