#include <gtest/gtest.h>

#include <random>

#include "replace/PairsTsv.h"
#include "search/QueryText.h"

namespace quorin::replace {
namespace {

std::string errorOf(std::string_view text) {
  const auto read = readPairsTsv(text);
  return read ? "(read)" : read.error().describe();
}

TEST(PairsTsv, ReadsFlagsHeaderBlankLinesAndCrLf) {
  const auto pairs =
      readPairsTsv("find\treplace\tflags\r\ncat\tdog\r\n\n(\\d+) ms\t$1ms\tr\nA\\tB\tx\tiwe\nlast\t\t");
  ASSERT_TRUE(pairs);
  ASSERT_EQ(pairs->size(), 4u);
  EXPECT_EQ((*pairs)[0], (BatchPair{.find = "cat", .replace = "dog"}));
  EXPECT_EQ((*pairs)[1], (BatchPair{.find = "(\\d+) ms", .replace = "$1ms", .regex = true}));
  EXPECT_EQ(
      (*pairs)[2],
      (BatchPair{
          .find = "A\\tB", .replace = "x", .caseSensitive = false, .wholeWord = true, .escapes = true}));
  EXPECT_EQ((*pairs)[3], (BatchPair{.find = "last", .replace = ""}));
}

TEST(PairsTsv, NamesTheMalformedLine) {
  EXPECT_EQ(errorOf("a\tb\nno tab here\n"), "Line 2: expected find, replace and flags separated by tabs");
  EXPECT_EQ(errorOf("a\tb\tr\tmore\n"), "Line 1: more than three fields (find, replace and flags)");
  EXPECT_EQ(errorOf("\n\na\tb\tq\n"), "Line 3: unknown flag 'q' (flags are r, i, w and e)");
  EXPECT_EQ(errorOf("a\tb\n\tb\n"), "Line 2: the find text is empty");
}

// What a pair means once its escapes are expanded: what a round trip must keep.
BatchPair effective(BatchPair pair) {
  if (pair.escapes && !pair.regex) {
    pair.find = search::expandEscapes(pair.find);
    pair.replace = search::expandEscapes(pair.replace);
  }
  pair.escapes = false;
  return pair;
}

TEST(PairsTsv, ExportThenImportKeepsEveryLiteralPair) {
  std::mt19937 rng(11);
  const std::string bytes = "ab\t\n\r\\$ é";
  std::vector<BatchPair> pairs;
  for (int i = 0; i < 500; ++i) {
    BatchPair pair;
    for (size_t n = 1 + rng() % 6; n > 0; --n) pair.find += bytes[rng() % bytes.size()];
    for (size_t n = rng() % 6; n > 0; --n) pair.replace += bytes[rng() % bytes.size()];
    pair.caseSensitive = rng() % 2 == 0;
    pair.wholeWord = rng() % 3 == 0;
    pairs.push_back(pair);
  }
  const auto back = readPairsTsv(writePairsTsv(pairs));
  ASSERT_TRUE(back) << back.error().describe();
  ASSERT_EQ(back->size(), pairs.size());
  for (size_t i = 0; i < pairs.size(); ++i) EXPECT_EQ(effective((*back)[i]), pairs[i]) << i;
}

}  // namespace
}  // namespace quorin::replace
