#include <gtest/gtest.h>

#include <random>

#include "dispatch/ManualMainQueue.h"
#include "search/FindNext.h"
#include "search/SearchTestSupport.h"

namespace quorin::search {
namespace {

using storage::ByteRange;

FindNextResult findIn(const SearchDoc& doc, FindNextRequest request, FindNextLimits limits = {}) {
  SearchCancellation cancellation;
  return FindNext(limits).find(request, doc.table->snapshot(), cancellation);
}

std::optional<ByteRange> rangeOf(const SearchMatch& m) {
  return ByteRange{m.matchByteStart, m.matchByteStart + m.matchByteLength};
}

// Stepping from any position, in either direction and with windows far
// smaller than the text, lands on exactly the matches the whole-document
// search counts: regex anchors, word tests and the left-to-right order of
// overlapping literals all see whole lines.
TEST(FindNextTest, StepsOntoTheSameMatchesAsTheWholeDocumentSearch) {
  std::mt19937 rng(3);
  static constexpr std::string_view kPieces[] = {"a", "b",  "ab",   "aa", "A", " ",
                                                 "_", "\n", "\r\n", "é",  "x1"};
  const std::vector<SearchOptions> queries = {
      {.query = "aa"},
      {.query = "AB", .caseSensitive = false},
      {.query = "ab", .wholeWord = true},
      {.query = "ab|a", .regex = true},
      {.query = "^a+", .regex = true},
      {.query = "\\bx1\\b|b$", .regex = true},
      {.query = "b*", .regex = true},  // empty matches too
      {.query = "^$", .regex = true},
      {.query = "(?<=b)a|a\\b", .regex = true},
      {.query = "É", .caseSensitive = false},
      {.query = "b\\na", .escapes = true},
  };
  for (int round = 0; round < 2; ++round) {
    std::string text;
    while (text.size() < 150) text += kPieces[rng() % std::size(kPieces)];
    const SearchDoc doc(text);
    FindNextLimits limits;
    limits.windowBytes = 5 + static_cast<int64_t>(rng() % 20);
    limits.regexPrefilter = round == 0;
    for (const SearchOptions& options : queries) {
      const std::vector<SearchMatch> all = doc.search(options).matches;
      for (int64_t from = 0; from <= static_cast<int64_t>(text.size()); ++from) {
        std::optional<ByteRange> next, previous;
        for (const SearchMatch& m : all) {
          const bool emptyHere = m.matchByteLength == 0 && m.matchByteStart == from;
          if (!next && m.matchByteStart >= from && !emptyHere) next = rangeOf(m);
          if (m.matchByteStart < from) previous = rangeOf(m);
        }
        const auto forward = findIn(doc, {options, from, false, false}, limits);
        const auto backward = findIn(doc, {options, from, true, false}, limits);
        ASSERT_EQ(forward.match, next) << "round " << round << " query " << options.query << " from " << from;
        ASSERT_EQ(backward.match, previous)
            << "round " << round << " query " << options.query << " from " << from;
      }
    }
  }
}

TEST(FindNextTest, StepsThroughEmptyLinesAndAcrossTheCutOfALongLine) {
  const SearchDoc blanks("abc\n\nxx\n\n\nyy\n");
  std::vector<int64_t> starts;
  int64_t from = 0;
  for (int step = 0; step < 4; ++step) {
    const auto found = findIn(blanks, {{.query = "^$", .regex = true}, from, false, true});
    ASSERT_TRUE(found.found());
    starts.push_back(found.match->start);
    from = found.match->start;
  }
  EXPECT_EQ(starts, (std::vector<int64_t>{4, 8, 9, 4}));

  // Forward windows of this line are cut at 40 and 80, backward ones from
  // 90 at 82, 74, … 42.
  FindNextLimits limits;
  limits.windowBytes = 8;
  limits.lineReachBytes = 32;
  const auto lineWithXY = [](int64_t at) {
    std::string line(100, 'a');
    line.replace(static_cast<size_t>(at), 2, "XY");
    return line + "\n";
  };
  const SearchOptions xy{.query = "X[Y]", .regex = true};
  EXPECT_EQ(findIn(SearchDoc(lineWithXY(39)), {xy, 0}, limits).match, (ByteRange{39, 41}));
  EXPECT_EQ(findIn(SearchDoc(lineWithXY(41)), {xy, 90, true}, limits).match, (ByteRange{41, 43}));
  EXPECT_EQ(findIn(SearchDoc(lineWithXY(0)), {{.query = "^a", .regex = true}, 1, false, false}, limits).match,
            std::nullopt);
}

TEST(FindNextTest, LooksNoFurtherThanItsBudgetAndWrapsWithinIt) {
  std::string text(1000, '.');
  text.replace(100, 3, "hit");
  text.replace(700, 3, "hit");
  const SearchDoc doc(text);
  FindNextLimits limits;
  limits.windowBytes = 64;
  limits.scanBytes = 300;

  // Forward from 200: the hit at 700 is 500 bytes on, past the budget.
  const auto far = findIn(doc, {{.query = "hit"}, 200, false, false}, limits);
  EXPECT_FALSE(far.found());
  EXPECT_EQ(far.bytesScanned, 300);
  EXPECT_EQ(far.describe(), "No match within the next 64 MB — use Find for a whole-file pass");

  const auto near = findIn(doc, {{.query = "hit"}, 450, false, false}, limits);
  EXPECT_EQ(near.match, (ByteRange{700, 703}));

  // From 800 with wrapping: 200 bytes to the end, then 100 from the start: the hit at 100 is just out.
  EXPECT_FALSE(findIn(doc, {{.query = "hit"}, 800, false, true}, limits).found());
  const auto wrapped = findIn(doc, {{.query = "hit"}, 900, false, true}, limits);
  EXPECT_EQ(wrapped.match, (ByteRange{100, 103}));
  EXPECT_TRUE(wrapped.wrapped);

  // Backward from 50 wraps to the end of the document: 50 bytes, then 350 from the end.
  limits.scanBytes = 400;
  const auto back = findIn(doc, {{.query = "hit"}, 50, true, true}, limits);
  EXPECT_EQ(back.match, (ByteRange{700, 703}));
  EXPECT_TRUE(back.wrapped);
  // A lone match is found again from just after it, going all the way round.
  const SearchDoc lone("xx hit xx\n");
  EXPECT_EQ(findIn(lone, {{.query = "hit"}, 4, false, true}).match, (ByteRange{3, 6}));
  EXPECT_EQ(findIn(lone, {{.query = "hit"}, 3, true, true}).match, (ByteRange{3, 6}));
}

TEST(FindNextTest, ReportsBadQueriesAndCancellation) {
  const SearchDoc doc("alpha\nbeta\n");
  const auto bad = findIn(doc, {{.query = "(unclosed", .regex = true}, 0});
  ASSERT_TRUE(bad.compileError.has_value());
  EXPECT_EQ(bad.describe(), "Invalid regex: missing closing parenthesis");

  const auto empty = findIn(doc, {{.query = ""}, 0});
  EXPECT_FALSE(empty.found());
  EXPECT_EQ(empty.describe(), "");

  SearchCancellation cancelled;
  cancelled.cancel();
  const auto stopped = FindNext().find({{.query = "beta"}, 0}, doc.table->snapshot(), cancelled);
  EXPECT_TRUE(stopped.cancelled);
  EXPECT_FALSE(stopped.found());
  EXPECT_EQ(stopped.describe(), "");

  // The asynchronous form hands its answer to the main queue.
  dispatch::ManualMainQueue main;
  std::optional<FindNextResult> answer;
  FindNext().start(
      {{.query = "beta"}, 0}, doc.table->snapshot(),
      [&](FindNextResult result) { answer = std::move(result); }, &main);
  while (!answer) ASSERT_GT(main.waitAndRun(std::chrono::seconds(10)), 0u);
  EXPECT_EQ(answer->match, (ByteRange{6, 10}));
}

}  // namespace
}  // namespace quorin::search
