#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "compare/Comparison.h"
#include "csv/CSVRecordIndex.h"
#include "csv/DelimiterDetection.h"
#include "dispatch/ManualMainQueue.h"
#include "document/DocumentTestSupport.h"
#include "hostile/HostileCorpus.h"
#include "search/SearchEngine.h"
#include "support/FakeFileIo.h"
#include "support/ManualExecutor.h"

namespace quorin::document {
namespace {

using testing::ManualExecutor;

std::optional<std::string> bytesIfReadable(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

struct Harness {
  dispatch::ManualMainQueue main;
  std::shared_ptr<ManualExecutor> queue = std::make_shared<ManualExecutor>();
  testing::FakeFileIo io;  // flushing to the disk is not what these tests are about, and it is slow
  Harness() {
    io.onFsync = [](int) { return 0; };
  }

  OpenOptions options(std::optional<text::DetectedEncoding> encoding = std::nullopt) {
    OpenOptions o = quietOptions(main, queue);
    o.encoding = encoding;
    o.fileIo = &io;
    return o;
  }
  std::expected<std::shared_ptr<Document>, OpenError> open(
      const std::filesystem::path& path, std::optional<text::DetectedEncoding> encoding = {}) {
    auto doc = Document::open(path.string(), options(encoding));
    settle();
    return doc;
  }
  void settle() {
    queue->runAll();
    main.runPending();
  }
  std::expected<persistence::SaveOutcome, persistence::SaveError> save(Document& doc) {
    std::optional<std::expected<persistence::SaveOutcome, persistence::SaveError>> result;
    doc.save([&](const auto& r) { result = r; });
    settle();
    return result.value();
  }
};

std::string wholeText(const Document& doc) {
  return doc.snapshot().text.readBytes({0, doc.length()}).value_or("");
}

// Search, CSV indexing and compare over whatever the document holds: each
// ends with a result or a message, never a crash.
void runReaders(Harness& h, Document& doc) {
  const DocumentSnapshot snapshot = doc.snapshot();
  search::SearchCancellation cancellation;
  // Without the prefilter, whose compilation alone would take most of this
  // test's time; the fuzz targets cover it.
  search::SearchLimits limits;
  limits.regexPrefilter = false;
  const search::SearchEngine engine(limits);
  for (const search::SearchOptions& query :
       {search::SearchOptions{.query = "x"}, search::SearchOptions{.query = "\u00e9", .caseSensitive = false},
        search::SearchOptions{.query = "(ab|[0-9]x)+$", .regex = true},
        search::SearchOptions{.query = "e\\n\\x00", .escapes = true}}) {
    const auto result = engine.search(1000, query, snapshot.text, snapshot.lines, cancellation);
    EXPECT_FALSE(result.compileError) << *result.compileError;
    EXPECT_FALSE(result.timedOut);
  }

  const uint8_t terminator = csv::recordTerminator(doc.lineEnding());
  const auto delimiter = csv::detectDelimiter(snapshot.text, terminator).value_or(csv::CSVDelimiter::comma());
  csv::CSVRecordIndex index(delimiter, snapshot.text.totalLength());
  index.build(snapshot.text, terminator);
  EXPECT_TRUE(index.isComplete());
  (void)index.parseState();

  auto other = h.open(doc.path());
  ASSERT_TRUE(other.has_value()) << other.error().describe();
  const auto outcome =
      compare::compareSides({.left = compare::CompareSide::of(doc.describedSnapshot(), "left"),
                             .right = compare::CompareSide::of((*other)->describedSnapshot(), "right"),
                             .options = {},
                             .budget = compare::kCompareBudget,
                             .sideByteLimit = compare::kSideByteLimit});
  if (outcome) {
    EXPECT_TRUE(outcome->identical());
  } else {
    EXPECT_FALSE(outcome.error().describe().empty());
  }
}

TEST(HostileFiles, EveryOperationEndsInAResultOrAMessageAndOnlySavingWrites) {
  testing::TempDir dir;
  Harness h;
  for (const testing::HostileFile& file : testing::makeHostileCorpus(dir)) {
    SCOPED_TRACE(file.name);
    const auto before = file.regular ? bytesIfReadable(file.path) : std::nullopt;
    auto doc = h.open(file.path);
    if (!doc) {
      // Refused with a message that names the file.
      EXPECT_NE(doc.error().describe().find(file.path.filename().string()), std::string::npos)
          << doc.error().describe();
      continue;
    }
    runReaders(h, **doc);
    if (before) {
      EXPECT_EQ(bytesIfReadable(file.path), before);
    }
    if ((*doc)->isReadOnly()) continue;

    // An edit saves losslessly in the file's own encoding, or is refused
    // with a message and the file left as it was.
    const std::string expected = "Z" + wholeText(**doc);
    ASSERT_TRUE((*doc)->insert(0, "Z", {}, {}).has_value());
    const auto saved = h.save(**doc);
    if (!saved) {
      EXPECT_FALSE(saved.error().describe().empty());
      if (before) {
        EXPECT_EQ(bytesIfReadable(file.path), before);
      }
      continue;
    }
    EXPECT_TRUE(file.regular) << "saved over " << file.path;
    auto reopened = h.open(file.path, (*doc)->encoding());
    ASSERT_TRUE(reopened.has_value()) << reopened.error().describe();
    EXPECT_EQ(wholeText(**reopened), expected);
  }
}

TEST(HostileFiles, AFileTruncatedWhileOpenIsReadAsFarAsItGoesAndNeverSavedFromMissingBytes) {
  testing::TempDir dir;
  Harness h;
  std::string text;
  for (int i = 0; i < 20'000; ++i) text += "row " + std::to_string(i) + ",a,b\n";
  const auto path = dir.write("shrinking.csv", text);
  auto doc = h.open(path);
  ASSERT_TRUE(doc.has_value()) << doc.error().describe();
  // Cut within the same clock tick as the open, as the coarse mtime clock
  // often makes it: the modification time does not change.
  const auto modified = std::filesystem::last_write_time(path);
  std::filesystem::resize_file(path, 1000);
  std::filesystem::last_write_time(path, modified);
  const std::string left = bytesIfReadable(path).value();

  runReaders(h, **doc);
  EXPECT_EQ(bytesIfReadable(path), left);

  // The bytes past the new end are gone: the document shows the text as far
  // as it goes, and a save writes exactly that (an in-place patch must not
  // go ahead on a file whose size changed, even when its mtime did not).
  ASSERT_TRUE((*doc)->replace({0, 1}, "R", {}, {}).has_value());
  const std::string shown = wholeText(**doc);
  EXPECT_EQ(shown.find('\0'), std::string::npos) << "zeros shown for bytes the file no longer has";
  const auto saved = h.save(**doc);
  const auto after = bytesIfReadable(path).value();
  if (saved) {
    EXPECT_EQ(saved->strategy, persistence::SaveStrategy::atomicRewrite);
    EXPECT_EQ(after, shown);
  } else {
    EXPECT_FALSE(saved.error().describe().empty());
    EXPECT_EQ(after, left);
  }
}

}  // namespace
}  // namespace quorin::document
