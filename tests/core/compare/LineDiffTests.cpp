#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "compare/DiffAlignment.h"
#include "compare/LineDiff.h"
#include "compare/LineKeys.h"

namespace quorin::compare {
namespace {

using Keys = std::vector<uint64_t>;

// Edit distance with deletions and insertions only: N + M − 2·LCS, by the
// textbook dynamic program, independent of the greedy algorithm under test.
int64_t editDistance(const Keys& a, const Keys& b) {
  std::vector<std::vector<int64_t>> lcs(a.size() + 1, std::vector<int64_t>(b.size() + 1, 0));
  for (size_t i = 1; i <= a.size(); ++i) {
    for (size_t j = 1; j <= b.size(); ++j) {
      lcs[i][j] = a[i - 1] == b[j - 1] ? lcs[i - 1][j - 1] + 1 : std::max(lcs[i - 1][j], lcs[i][j - 1]);
    }
  }
  return static_cast<int64_t>(a.size() + b.size()) - 2 * lcs[a.size()][b.size()];
}

// Replays the changes on the left side; must give the right side.
Keys applyChanges(const Keys& left, const Keys& right, const std::vector<DiffChange>& changes) {
  Keys out;
  int64_t at = 0;
  for (const DiffChange& change : changes) {
    out.insert(out.end(), left.begin() + at, left.begin() + change.leftStart);
    out.insert(out.end(), right.begin() + change.rightStart,
               right.begin() + change.rightStart + change.rightCount);
    at = change.leftStart + change.leftCount;
  }
  out.insert(out.end(), left.begin() + at, left.end());
  return out;
}

// Every line of each side shows once, in order; fillers only inside blocks;
// the blocks are exactly the changed rows.
void expectAlignmentInvariants(const DiffAlignment& alignment, int64_t leftCount, int64_t rightCount) {
  ASSERT_EQ(alignment.rightLines.size(), alignment.leftLines.size());
  ASSERT_EQ(alignment.changed.size(), alignment.leftLines.size());
  int64_t nextLeft = 0;
  int64_t nextRight = 0;
  for (int64_t row = 0; row < alignment.rowCount(); ++row) {
    const auto l = alignment.leftLines[static_cast<size_t>(row)];
    const auto r = alignment.rightLines[static_cast<size_t>(row)];
    ASSERT_FALSE(l == kFillerRow && r == kFillerRow) << "row " << row;
    if (l != kFillerRow) {
      ASSERT_EQ(l, nextLeft++);
    }
    if (r != kFillerRow) {
      ASSERT_EQ(r, nextRight++);
    }
    if (l == kFillerRow || r == kFillerRow) {
      ASSERT_TRUE(alignment.changed[static_cast<size_t>(row)]);
    }
  }
  EXPECT_EQ(nextLeft, leftCount);
  EXPECT_EQ(nextRight, rightCount);
  std::vector<bool> inBlock(alignment.leftLines.size(), false);
  int64_t previousEnd = -1;
  for (const RowRange& block : alignment.blocks) {
    ASSERT_GT(block.count, 0);
    ASSERT_GT(block.start, previousEnd);  // blocks are separated by unchanged rows
    for (int64_t row = block.start; row < block.start + block.count; ++row)
      inBlock[static_cast<size_t>(row)] = true;
    previousEnd = block.start + block.count;
  }
  EXPECT_EQ(inBlock, alignment.changed);
}

TEST(LineDiffTest, RandomPairsGiveShortestScriptsThatRebuildTheRightSide) {
  std::mt19937 rng(20240611);
  for (int round = 0; round < 3000; ++round) {
    // Few distinct keys, so that lines repeat and many scripts tie.
    const uint64_t alphabet = 2 + rng() % 4;
    Keys left(rng() % 14);
    for (auto& key : left) key = rng() % alphabet;
    Keys right = left;
    for (int edits = static_cast<int>(rng() % 6); edits > 0; --edits) {
      const size_t at = right.empty() ? 0 : rng() % (right.size() + 1);
      if (rng() % 2 && at < right.size()) {
        right.erase(right.begin() + static_cast<std::ptrdiff_t>(at));
      } else {
        right.insert(right.begin() + static_cast<std::ptrdiff_t>(at), rng() % alphabet);
      }
    }
    if (round % 5 == 0) std::shuffle(right.begin(), right.end(), rng);
    SCOPED_TRACE("round " + std::to_string(round));

    const DiffResult result = diffLines(left, right, kCompareBudget);
    ASSERT_FALSE(result.capped);
    int64_t edited = 0;
    int64_t previousLeftEnd = -1;
    for (const DiffChange& change : result.changes) {
      ASSERT_TRUE(change.leftCount > 0 || change.rightCount > 0);
      ASSERT_GT(change.leftStart, previousLeftEnd);  // ascending, with an unchanged line between blocks
      previousLeftEnd = change.leftStart + change.leftCount;
      edited += change.leftCount + change.rightCount;
    }
    ASSERT_EQ(edited, editDistance(left, right));
    ASSERT_EQ(applyChanges(left, right, result.changes), right);
    expectAlignmentInvariants(
        alignDiff(static_cast<int64_t>(left.size()), static_cast<int64_t>(right.size()), result.changes),
        static_cast<int64_t>(left.size()), static_cast<int64_t>(right.size()));
  }
}

TEST(LineDiffTest, BudgetCapsExactlyPastTheShortestScriptsLength) {
  // Prefix 1 and suffix 5 are stripped; the middles 7 2 8 and 9 2 6 need 4 steps.
  const Keys left{1, 7, 2, 8, 5};
  const Keys right{1, 9, 2, 6, 5};
  const DiffResult within = diffLines(left, right, 4);
  EXPECT_FALSE(within.capped);
  EXPECT_EQ(within.changes, (std::vector<DiffChange>{{1, 1, 1, 1}, {3, 1, 3, 1}}));

  const DiffResult capped = diffLines(left, right, 3);
  EXPECT_TRUE(capped.capped);
  EXPECT_EQ(capped.changes, (std::vector<DiffChange>{{1, 3, 1, 3}}));
  // A zero budget still answers, as one capped block.
  EXPECT_EQ(diffLines(Keys{1, 2}, Keys{3}, 0).changes, (std::vector<DiffChange>{{0, 2, 0, 1}}));

  // Middles far apart: one block for everything between prefix and suffix.
  Keys bigLeft{0};
  Keys bigRight{0};
  for (uint64_t i = 0; i < 3000; ++i) {
    bigLeft.push_back(100 + i);
    bigRight.push_back(10'000 + i);
  }
  bigLeft.push_back(1);
  bigRight.push_back(1);
  const DiffResult large = diffLines(bigLeft, bigRight);
  EXPECT_TRUE(large.capped);
  EXPECT_EQ(large.changes, (std::vector<DiffChange>{{1, 3000, 1, 3000}}));
}

// The random test checks the shape of every alignment; this one where the fillers go.
TEST(DiffAlignmentTest, PairsBlockLinesAndFillsTheLongerSide) {
  const std::vector<DiffChange> threeForOne{{1, 3, 1, 1}};
  const DiffAlignment shrink = alignDiff(5, 3, threeForOne);
  EXPECT_EQ(shrink.leftLines, (std::vector<int32_t>{0, 1, 2, 3, 4}));
  EXPECT_EQ(shrink.rightLines, (std::vector<int32_t>{0, 1, -1, -1, 2}));
  EXPECT_EQ(shrink.changed, (std::vector<bool>{false, true, true, true, false}));
  EXPECT_EQ(shrink.blocks, (std::vector<RowRange>{{1, 3}}));
}

TEST(LineKeysTest, NormalisationRules) {
  const LineKeyOptions exact;
  const LineKeyOptions blanks{.ignoreWhitespace = true};
  const LineKeyOptions caseless{.ignoreCase = true};
  EXPECT_EQ(lineKey("abc\r\n", exact), lineKey("abc\n", exact));
  EXPECT_EQ(lineKey("a\rb", exact), lineKey("ab", exact));
  EXPECT_NE(lineKey("a b", exact), lineKey("ab", exact));

  EXPECT_EQ(lineKey("a  b", blanks), lineKey(" a b\t", blanks));
  EXPECT_NE(lineKey("a  b", exact), lineKey(" a b\t", exact));
  EXPECT_EQ(lineKey("a \t b", blanks), lineKey("a b", exact));
  EXPECT_NE(lineKey("a b", blanks), lineKey("ab", blanks));  // a run still counts as one space
  EXPECT_EQ(lineKey(" \t \r\n", blanks), kFnvOffsetBasis);
  // Only trailing line-break bytes drop out: a CR inside the line counts.
  EXPECT_NE(lineKey("a \r b", blanks), lineKey("a b", blanks));
  EXPECT_NE(lineKey("\ra", blanks), lineKey("a", blanks));
  EXPECT_EQ(lineKey("a \r\t b", blanks), lineKey(" a \r b \r\n", blanks));
  EXPECT_EQ(lineKey("a\t\r \r\n", blanks), lineKey("a", exact));
  EXPECT_EQ(lineKey("", blanks), kFnvOffsetBasis);

  EXPECT_EQ(lineKey("ABC", caseless), lineKey("abc", caseless));
  EXPECT_NE(lineKey("ABC", exact), lineKey("abc", exact));
  EXPECT_NE(lineKey("\xC3\x84", caseless), lineKey("\xC3\xA4", caseless));  // Ä, ä: ASCII only
  EXPECT_EQ(lineKey(" A  B ", {.ignoreWhitespace = true, .ignoreCase = true}), lineKey("a b", exact));

  const std::vector<std::string_view> lines{"x", "X ", ""};
  EXPECT_EQ(lineKeys(lines, {true, true}),
            (std::vector<uint64_t>{lineKey("x", exact), lineKey("x", exact), kFnvOffsetBasis}));
}

TEST(LineKeysTest, PiecesKeyLikeTheWholeLine) {
  std::mt19937 rng(7);
  const std::string alphabet = "aB \t\r\nz";
  for (int round = 0; round < 500; ++round) {
    std::string line;
    for (size_t n = rng() % 16; n > 0; --n) line += alphabet[rng() % alphabet.size()];
    const LineKeyOptions options{.ignoreWhitespace = rng() % 2 == 1, .ignoreCase = rng() % 2 == 1};
    LineKeyBuilder builder(options);
    size_t at = 0;
    while (at < line.size()) {
      const size_t piece = std::min(line.size() - at, static_cast<size_t>(rng() % 4));
      builder.add(std::string_view(line).substr(at, piece));
      at += piece;
    }
    ASSERT_EQ(builder.finish(), lineKey(line, options)) << line;
    ASSERT_EQ(builder.finish(), kFnvOffsetBasis);  // finish() starts the next line afresh
  }
}

}  // namespace
}  // namespace quorin::compare
