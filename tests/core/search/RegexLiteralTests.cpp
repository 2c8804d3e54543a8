#include <gtest/gtest.h>

#include "search/RegexLiteral.h"

namespace quorin::search {
namespace {

std::string extracted(std::string_view pattern, bool caseSensitive = true) {
  const auto literal = innerLiteral(pattern, caseSensitive);
  if (!literal) return "<none>";
  return literal->caseless ? "i:" + literal->text : literal->text;
}

TEST(RegexLiteralTest, ExtractsTheLongestRequiredRunOrNothing) {
  const std::pair<const char*, const char*> table[] = {
      // Runs end at classes, escapes, groups and anchors; the longest wins.
      {"\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d+Z ERROR", "Z ERROR"},
      {"^abc$", "abc"},
      {"x(y|z)w", "x"},
      {"a.c", "a"},
      {"[(|)]+needle(?:a|b)", "needle"},
      {"\\Qa|b(\\E+x", "a|b"},
      {"ab(?#c|d)cd", "abcd"},
      {"caf\u00e9s", "caf\u00e9s"},
      {"(?<=\\x{29})tail\\x41", "tail"},
      {"\\p{L}+word\\pN", "word"},
      {"[[:alpha:]\\]]x]yz", "x]yz"},
      // A quantifier takes its character (a whole UTF-8 one) out of the run.
      {"colou?r", "colo"},
      {"ab*c", "a"},
      {"abc{2,3}d", "ab"},
      {"xy\u00e9+z", "xy"},
      {"a{x}bb", "x}bb"},
      // Case: (?i) at the start, or the search's own; no k, s or non-ASCII then.
      {"(?i)ERR", "i:err"},
      {"(?i)risk factor", "i: factor"},
      {"(?m)(?s)abc", "abc"},
      // Nothing when unsure.
      {"ab|cd", "<none>"},
      {"ab(?i)cd", "<none>"},
      {"(?x)a b", "<none>"},
      {"(a(?x) #)\n)bb", "<none>"},
      {"(*ACCEPT)ab", "<none>"},
      {"(a)\\1bc", "<none>"},
      {"\\cab", "<none>"},
      {"a?", "<none>"},
      {"(ab", "<none>"},
  };
  for (const auto& [pattern, expected] : table) EXPECT_EQ(extracted(pattern), expected) << pattern;
  EXPECT_EQ(extracted("Z ERROR", false), "i:z error");
  EXPECT_EQ(extracted("(?-i)Kelvin", false), "Kelvin");
  EXPECT_EQ(extracted("\u00e9t\u00e9 x", false), "i: x");
}

}  // namespace
}  // namespace quorin::search
