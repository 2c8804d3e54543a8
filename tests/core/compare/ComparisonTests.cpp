#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "compare/CompareReport.h"
#include "compare/Comparison.h"
#include "dispatch/ManualMainQueue.h"
#include "document/DocumentTestSupport.h"
#include "support/ManualExecutor.h"
#include "support/TempDir.h"

namespace quorin::compare {
namespace {

using testing::ManualExecutor;

// Two documents over temporary files, their line indexes built by hand so a
// test can leave one unfinished.
struct Fixture {
  testing::TempDir dir;
  dispatch::ManualMainQueue main;
  std::shared_ptr<ManualExecutor> queue = std::make_shared<ManualExecutor>();

  std::shared_ptr<document::Document> open(const std::string& name, std::string_view bytes,
                                           bool finishIndex = true,
                                           std::optional<storage::LargeFileOpenRequest> mode = {}) {
    document::OpenOptions options = document::quietOptions(main, queue);
    // Tiny passes leave an index unfinished after its first pass; a slice
    // needs megabytes, so it keeps the product's pace.
    if (mode) {
      options.mode = *mode;
    } else {
      options.lineIndexLimits.firstPassLines = 2;
      options.lineIndexLimits.passLines = 2;
      options.lineIndexLimits.chunkBytes = 16;
    }
    auto doc = document::Document::open(dir.write(name, bytes).string(), options).value();
    if (finishIndex) {
      queue->runAll();
      main.runPending();
    }
    return doc;
  }
};

CompareRequest requestFor(const document::Document& left, const document::Document& right,
                          LineKeyOptions options = {}) {
  return {CompareSide::of(left.describedSnapshot(), "left.txt"),
          CompareSide::of(right.describedSnapshot(), "right.txt"), options};
}

TEST(ComparisonTest, ReadsDocumentsLineByLineWithNotices) {
  Fixture f;
  const auto lf = f.open("lf.txt", "alpha\nbeta\ngamma\n");
  const auto crlf = f.open("crlf.txt", "alpha\r\nbeta\r\ngamma\r\n");
  const auto plain = compareSides(requestFor(*lf, *crlf)).value();
  EXPECT_TRUE(plain.identical());
  EXPECT_EQ(plain.leftLineCount, 4);  // the empty line after the last break counts, as in the editor
  EXPECT_EQ(plain.rightBytesCompared, 20);
  EXPECT_EQ(plain.notices,
            (std::vector<std::string>{"line endings differ (left LF, right CRLF) and are not compared"}));

  // Unsaved edits are compared, and said to be.
  ASSERT_TRUE(crlf->insert(7, "new\r\n", {}, {}));
  const auto edited = compareSides(requestFor(*lf, *crlf)).value();
  EXPECT_EQ(edited.diff.changes, (std::vector<DiffChange>{{1, 0, 1, 1}}));
  EXPECT_EQ(edited.notices.at(0), "right side is the open document's text, unsaved edits included");

  // A side in another encoding is compared through its UTF-8 working copy.
  const auto utf16 = f.open("u16.txt", testing::utf16LEWithMark(u"alpha\nbeta\ngamma\n"));
  const auto transcoded = compareSides(requestFor(*utf16, *lf)).value();
  EXPECT_TRUE(transcoded.identical());
  EXPECT_EQ(transcoded.notices,
            (std::vector<std::string>{
                "left side transcoded up to 17 bytes — UTF-16 LE source compared as Unicode"}));
}

TEST(ComparisonTest, StopsAtTheByteLimitAndAtTheIndexedPortion) {
  Fixture f;
  const auto left = f.open("left.txt", "aaaa\nbbbb\ncccc\ndddd\n");
  const auto right = f.open("right.txt", "aaaa\nbbbb\nxxxx\n");
  CompareRequest request = requestFor(*left, *right);
  request.sideByteLimit = 14;  // two whole lines of 5 bytes; the third would pass it
  const auto truncated = compareSides(request).value();
  EXPECT_TRUE(truncated.identical());
  EXPECT_EQ(truncated.leftLineCount, 2);
  EXPECT_EQ(truncated.leftBytesCompared, 10);
  EXPECT_EQ(truncated.notices, (std::vector<std::string>{"left side truncated at 14 bytes",
                                                         "right side truncated at 14 bytes"}));
  // Exactly three lines fit: the right side is then read whole, with the
  // empty line after its last break.
  request.sideByteLimit = 15;
  EXPECT_EQ(compareSides(request)->diff.changes, (std::vector<DiffChange>{{2, 1, 2, 2}}));

  // Indexes still building: only the lines they have found whole are compared.
  const auto building = f.open("building.txt", "aaaa\nbbbb\ncccc\ndddd\neeee\nffff\n", false);
  const auto pending = f.open("pending.txt", "aaaa\nbbbb\nzzzz\n", false);
  ASSERT_FALSE(building->snapshot().lines.isComplete);
  const auto partial = compareSides(requestFor(*building, *pending)).value();
  EXPECT_EQ(partial.leftLineCount, building->snapshot().lines.knownLineCount() - 1);
  EXPECT_EQ(
      partial.notices,
      (std::vector<std::string>{
          "Index still building — comparison covers the indexed portion only; re-run Compare once indexing "
          "finishes",
          "right index still building — comparison covers its indexed portion"}));
}

TEST(ComparisonTest, CoversOnlyALoadedSlice) {
  Fixture f;
  std::string text;
  for (int i = 0; text.size() < 3 * storage::kOpenModeMegabyte; ++i)
    text += "line " + std::to_string(i) + "\n";
  const auto whole = f.open("whole.txt", text, true, storage::LargeFileOpenRequest{});
  const auto slice = f.open("slice.txt", text, true, {{storage::LargeFileOpenMode::windowedSlice, 1, 2, 0}});
  const storage::ByteRange range = slice->editableRange();
  const auto sliceText = f.open(
      "slice-text.txt", text.substr(static_cast<size_t>(range.start), static_cast<size_t>(range.length())),
      true, storage::LargeFileOpenRequest{});
  // The slice's lines are compared from its first line on, and no further than its end.
  const auto outcome = compareSides(requestFor(*slice, *sliceText)).value();
  EXPECT_TRUE(outcome.identical());
  EXPECT_EQ(outcome.notices, (std::vector<std::string>{"Comparison covers loaded slice only (left side)"}));
  EXPECT_EQ(outcome.leftBytesCompared, range.length());
  const auto sliceFirstLine = whole->snapshot().lines.lineContaining(range.start).value();
  EXPECT_EQ(sideLineText(CompareSide::of(slice->describedSnapshot(), "s"), 0),
            sideLineText(CompareSide::of(whole->describedSnapshot(), "w"), sliceFirstLine));
}

TEST(ComparisonTest, ASideThatShrankCannotBeCompared) {
  Fixture f;
  // Pages past the new end fault: a shrink within the last page would read as NULs.
  const auto left = f.open("left.txt", std::string(3 * 4096, 'a') + "\n");
  const auto right = f.open("right.txt", "a\n");
  ASSERT_EQ(::truncate((f.dir.path() / "left.txt").c_str(), 10), 0);
  const auto result = compareSides(requestFor(*left, *right));
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().describe(), "The file “left.txt” couldn't be read for comparison.");
}

TEST(ComparisonTest, JobReportsOnTheMainQueueAndCancels) {
  Fixture f;
  const auto left = f.open("left.txt", "a\nb\n");
  const auto right = f.open("right.txt", "a\nc\n");
  std::optional<std::expected<CompareOutcome, CompareError>> finished;
  auto job = CompareJob::start(requestFor(*left, *right), f.main, {}, [&](const auto& result) {
    EXPECT_TRUE(f.main.isMainThread());
    finished = result;
  });
  while (!finished) f.main.waitAndRun(std::chrono::milliseconds(50));
  ASSERT_TRUE(*finished);
  EXPECT_EQ((*finished)->diff.changes, (std::vector<DiffChange>{{1, 1, 1, 1}}));
  EXPECT_EQ((*finished)->leftVersion, left->version());

  const std::atomic<bool> cancelled{true};
  EXPECT_TRUE(compareSides(requestFor(*left, *right), &cancelled)->cancelled);
}

TEST(CompareReportTest, LayoutLimitAndSaving) {
  Fixture f;
  const auto left = f.open("left.txt", "same\nold \xC3\xA9t\xC3\xA9\n");
  const auto right = f.open("right.txt", "same\nnew\nmore\n");
  const CompareRequest request = requestFor(*left, *right, {.ignoreWhitespace = true});
  const CompareOutcome outcome = compareSides(request).value();
  EXPECT_EQ(buildReport(request, outcome),
            "Quorin compare report\n"
            "Left: left.txt (3 lines compared)\n"
            "Right: right.txt (4 lines compared)\n"
            "Options: ignore whitespace on, ignore case off\n"
            "Result: 1 change: 1 line removed, 2 lines added\n"
            "\n"
            "2c2,3\n< old \xC3\xA9t\xC3\xA9\n---\n> new\n> more\n");
  const std::string cut = buildReport(request, outcome, 150);
  EXPECT_LE(cut.size(), 150u);
  EXPECT_TRUE(cut.ends_with("\n[report truncated at 150 bytes]\n")) << cut;

  // Long lines are cut on a character boundary.
  EXPECT_EQ(sideLineText(request.left, 1, 6), "old \xC3\xA9…");
  EXPECT_EQ(sideLineText(request.left, 1, 5), "old …");

  const auto path = f.dir.path() / std::string(kDefaultReportFileName);
  ASSERT_TRUE(saveReport(path, "report\n"));
  const auto failed = saveReport(f.dir.path() / "absent" / "r.txt", "report\n");
  ASSERT_FALSE(failed);
  EXPECT_EQ(failed.error().describe().rfind("open(", 0), 0u);
}

}  // namespace
}  // namespace quorin::compare
