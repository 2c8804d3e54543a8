#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "dispatch/ManualMainQueue.h"
#include "dispatch/SerialQueue.h"
#include "storage/InMemoryLineIndex.h"
#include "storage/StorageTestSupport.h"
#include "support/ManualExecutor.h"

namespace quorin::storage {
namespace {

using testing::ManualExecutor;

using testing::TempDir;

LineIndexLimits tinyLimits() {
  LineIndexLimits limits;
  limits.firstPassLines = 3;
  limits.firstPassBytes = 40;
  limits.passLines = 5;
  limits.passBytes = 64;
  limits.chunkBytes = 8;
  limits.chunksPerCheck = 2;
  return limits;
}

struct Fixture {
  TempDir dir;
  std::shared_ptr<PieceTable> table;
  std::shared_ptr<ManualExecutor> queue = std::make_shared<ManualExecutor>();
  std::shared_ptr<InMemoryLineIndex> index;

  explicit Fixture(std::string_view text, LineIndexLimits limits = tinyLimits(),
                   LineIndexWindow window = LineIndexWindow::wholeDocument(),
                   LineIndexTier tier = LineIndexTier::inMemory()) {
    table = std::make_shared<PieceTable>(testing::bufferOver(dir, text));
    LineIndexBuildOptions options;
    options.queue = queue;
    options.limits = limits;
    index = InMemoryLineIndex::create(table, tier, window, options);
    index->startBuild();
  }
};

std::vector<int64_t> naiveStarts(std::string_view text, char terminator, int64_t from = 0,
                                 std::optional<int64_t> boundedEnd = std::nullopt) {
  const auto end = static_cast<size_t>(boundedEnd.value_or(static_cast<int64_t>(text.size())));
  std::vector<int64_t> starts;
  if (from < static_cast<int64_t>(end) || !boundedEnd) starts.push_back(from);
  for (size_t i = static_cast<size_t>(from); i < end; ++i) {
    if (text[i] == terminator && (i + 1 < end || !boundedEnd)) starts.push_back(static_cast<int64_t>(i + 1));
  }
  return starts;
}

std::vector<int64_t> knownStarts(const LineIndexSnapshot& snapshot) {
  std::vector<int64_t> starts;
  for (int64_t line = 0; line < snapshot.knownLineCount(); ++line)
    starts.push_back(snapshot.lineStart(line).value_or(-1));
  return starts;
}

TEST(LineIndex, LineStartsOfSmallDocuments) {
  struct Case {
    std::string text;
    std::vector<int64_t> starts;
  };
  const std::vector<Case> cases = {
      {"", {0}},
      {"no terminator at all", {0}},
      {"a\nbb\n", {0, 2, 5}},          // a terminator at the end opens a last, empty line
      {"a\rb\nc\rd\r", {0, 2, 6, 8}},  // cr document: LF is an ordinary byte
      {"a\r\nb\rc\r\nd", {0, 3, 8}},   // crlf document: a lone CR is an ordinary byte
      {"\n\n\n", {0, 1, 2, 3}},
  };
  for (const Case& c : cases) {
    Fixture f(c.text);
    f.queue->runAll();
    const auto snapshot = f.index->snapshot();
    EXPECT_TRUE(snapshot.isComplete) << c.text;
    EXPECT_EQ(knownStarts(snapshot), c.starts) << c.text;
    EXPECT_EQ(snapshot.lineCount(), static_cast<int64_t>(c.starts.size()));
    EXPECT_EQ(snapshot.lineStart(-1), std::nullopt);
    EXPECT_EQ(snapshot.lineStart(static_cast<int64_t>(c.starts.size())), std::nullopt);
  }
}

TEST(LineIndex, BoundedWindows) {
  const std::string text = "l0\nl1\nl2\nl3\nl4\n";
  {
    Fixture f(text, tinyLimits(), LineIndexWindow::bounded(6, 12));
    f.queue->runAll();
    // The terminator at the window's last byte opens a line outside the window.
    EXPECT_EQ(knownStarts(f.index->snapshot()), (std::vector<int64_t>{6, 9}));
    EXPECT_EQ(f.index->snapshot().lineContaining(100), 1);
  }
  {
    Fixture f(text, tinyLimits(), LineIndexWindow::bounded(9, 9));
    EXPECT_EQ(f.index->snapshot().lineCount(), 0);
    EXPECT_EQ(f.index->snapshot().lineContaining(9), std::nullopt);
  }
  {
    Fixture f(text, tinyLimits(), LineIndexWindow::bounded(12, 1000));  // clamped to the document
    f.queue->runAll();
    EXPECT_EQ(knownStarts(f.index->snapshot()), (std::vector<int64_t>{12}));
  }
}

std::string randomText(std::mt19937& rng, size_t length, char terminator) {
  const std::string alphabet = std::string("abc \r\n") + terminator + terminator;
  std::string text;
  for (size_t i = 0; i < length; ++i) text += alphabet[rng() % alphabet.size()];
  return text;
}

// Random edits interleaved with single background passes; after every step
// the lines the index knows must be those of a naive split of the current
// text, and once the build finishes it must know all of them.
void runModel(text::LineEnding ending, uint32_t seed) {
  std::mt19937 rng(seed);
  const char terminator = ending == text::LineEnding::cr ? '\r' : '\n';
  const std::string eol = ending == text::LineEnding::crlf ? "\r\n" : std::string(1, terminator);
  std::string start;
  while (start.size() < 600) start += "line " + std::to_string(rng() % 1000) + eol;
  LineIndexLimits limits = tinyLimits();
  limits.spliceShiftLimit = static_cast<int64_t>(rng() % 3 == 0 ? 1000 : rng() % 4);
  limits.deltaRestartWeight = rng() % 2 == 0 ? 1 << 20 : 2000;
  Fixture f(start, limits);
  ASSERT_EQ(f.table->originalBuffer().lineEnding(), ending);

  for (int step = 0; step < 300; ++step) {
    const auto total = f.table->totalLength();
    const auto choice = rng() % 10;
    if (choice < 3) {
      f.queue->runOne();
    } else if (choice < 7 || total == 0) {
      const auto at = static_cast<int64_t>(rng() % static_cast<uint32_t>(total + 1));
      f.index->apply(f.table->insert(randomText(rng, 1 + rng() % 6, terminator), at));
    } else {
      const auto at = static_cast<int64_t>(rng() % static_cast<uint32_t>(total));
      f.index->apply(f.table->deleteRange({at, at + 1 + static_cast<int64_t>(rng() % 8)}));
    }
    const std::string now = testing::wholeText(*f.table);
    const auto expected = naiveStarts(now, terminator);
    auto known = knownStarts(f.index->snapshot());
    ASSERT_LE(known.size(), expected.size()) << "step " << step;
    ASSERT_EQ(known,
              std::vector<int64_t>(expected.begin(), expected.begin() + static_cast<long>(known.size())))
        << "step " << step;
  }
  f.queue->runAll();
  const std::string now = testing::wholeText(*f.table);
  const auto snapshot = f.index->snapshot();
  ASSERT_TRUE(snapshot.isComplete);
  const auto expected = naiveStarts(now, terminator);
  EXPECT_EQ(knownStarts(snapshot), expected);
  EXPECT_EQ(snapshot.lineCount(), static_cast<int64_t>(expected.size()));
  for (int probe = 0; probe < 50; ++probe) {
    const auto offset = static_cast<int64_t>(rng() % (now.size() + 1));
    const auto line = std::upper_bound(expected.begin(), expected.end(), offset) - expected.begin() - 1;
    EXPECT_EQ(snapshot.lineContaining(offset), line) << offset;
  }
}

TEST(LineIndexModel, RandomEditsDuringBuildMatchNaiveSplit) {
  for (uint32_t seed = 1; seed <= 12; ++seed) {
    for (auto ending : {text::LineEnding::lf, text::LineEnding::crlf, text::LineEnding::cr}) {
      SCOPED_TRACE(std::string(text::name(ending)) + " seed " + std::to_string(seed));
      runModel(ending, seed);
    }
  }
}

TEST(LineIndex, RestartMakesOldSnapshotsStaleAndRebuilds) {
  Fixture f("a\nb\nc\n");
  f.queue->runAll();
  const auto old = f.index->snapshot();
  f.table->insert("x\ny\n", 0);  // not told: a reload would look like this
  f.index->restart();
  f.queue->runAll();
  EXPECT_FALSE(old.isCurrent());
  const auto fresh = f.index->snapshot();
  EXPECT_TRUE(fresh.isCurrent());
  EXPECT_EQ(knownStarts(fresh), (std::vector<int64_t>{0, 2, 4, 6, 8, 10}));
}

TEST(LineIndex, CancelStopsTheBuildButKeepsWhatItFound) {
  std::string text(5000, 'x');
  for (size_t i = 9; i < text.size(); i += 10) text[i] = '\n';
  Fixture f(text);
  const auto known = f.index->snapshot().knownLineCount();
  f.index->cancel();
  f.queue->runAll();
  EXPECT_EQ(f.index->snapshot().knownLineCount(), known);
  EXPECT_FALSE(f.index->waitUntilComplete(std::chrono::milliseconds(0)));
}

// Edits from this thread while the build runs on a real queue: the index
// must end complete and right, and ThreadSanitizer watches the locking.
TEST(LineIndexConcurrency, EditsWhileBackgroundBuildRuns) {
  TempDir dir;
  std::mt19937 rng(7);
  std::string text;
  while (text.size() < 400'000) text += "entry " + std::to_string(rng()) + "\n";
  auto table = std::make_shared<PieceTable>(testing::bufferOver(dir, text));
  LineIndexBuildOptions options;
  options.queue = std::make_shared<dispatch::SerialQueue>("test.lineindex");
  options.limits.firstPassLines = 100;
  options.limits.passLines = 500;
  options.limits.chunkBytes = 4096;
  options.limits.spliceShiftLimit = 2000;
  auto index =
      InMemoryLineIndex::create(table, LineIndexTier::inMemory(), LineIndexWindow::wholeDocument(), options);
  index->startBuild();
  for (int i = 0; i < 400; ++i) {
    const auto at = static_cast<int64_t>(rng() % static_cast<uint32_t>(table->totalLength()));
    if (i % 3 == 0) {
      index->apply(table->deleteRange({at, at + 3}));
    } else {
      index->apply(table->insert(i % 2 == 0 ? "\n" : "ab\ncd", at));
    }
    (void)index->snapshot().lineStart(static_cast<int64_t>(rng() % 1000));
  }
  ASSERT_TRUE(index->waitUntilComplete(std::chrono::seconds(30)));
  EXPECT_EQ(knownStarts(index->snapshot()), naiveStarts(testing::wholeText(*table), '\n'));
}

std::string numberedLines(int count) {
  std::string text;
  for (int i = 0; i < count; ++i) text += std::to_string(i) + "\n";
  return text;
}

TEST(LineIndexTiers, DiskBackedGrowsManyTimesAndLeavesNothingBehind) {
  TempDir scratch;
  const auto file = scratch.path() / "lineindex.bin";
  LineIndexLimits limits;
  limits.passLines = 700;
  const std::string text = numberedLines(20'000);
  {
    Fixture f(text, limits, LineIndexWindow::wholeDocument(), LineIndexTier::diskBacked(file, 1));
    EXPECT_EQ(f.index->tierName(), "2 (mmap'd)");
    f.queue->runAll();
    EXPECT_TRUE(std::filesystem::exists(file));
    EXPECT_EQ(knownStarts(f.index->snapshot()), naiveStarts(text, '\n'));
  }
  EXPECT_FALSE(std::filesystem::exists(file));
}

TEST(LineIndexTiers, UncreatableScratchFileFallsBackToMemory) {
  Fixture f("a\nb\n", tinyLimits(), LineIndexWindow::wholeDocument(),
            LineIndexTier::diskBacked("/nonexistent-dir/lineindex.bin", 10));
  EXPECT_EQ(f.index->tierName(),
            "1 (in-memory; tier-2 fallback: open(/nonexistent-dir/lineindex.bin) failed: No such file or "
            "directory)");
  f.queue->runAll();
  EXPECT_EQ(knownStarts(f.index->snapshot()), (std::vector<int64_t>{0, 2, 4}));
}

TEST(LineIndexTiers, RunningIndexIsPromotedOnceItHoldsEnoughLines) {
  TempDir dir;
  TempDir scratch;
  const std::string text = numberedLines(3000);
  dispatch::ManualMainQueue main;
  std::vector<LineIndexProgress> reports;
  auto queue = std::make_shared<ManualExecutor>();
  LineIndexBuildOptions options;
  options.queue = queue;
  options.mainQueue = &main;
  options.onProgress = [&](const LineIndexProgress& p) { reports.push_back(p); };
  options.promotion = LiveTierPromotion{1000, scratch.path() / "lineindex.bin"};
  options.limits.firstPassLines = 100;
  options.limits.passLines = 400;
  auto table = std::make_shared<PieceTable>(testing::bufferOver(dir, text));
  auto index =
      InMemoryLineIndex::create(table, LineIndexTier::inMemory(), LineIndexWindow::wholeDocument(), options);
  index->startBuild();
  queue->runAll();
  main.runPending();

  EXPECT_EQ(index->tierName(), "2 (mmap'd, promoted live)");
  EXPECT_TRUE(std::filesystem::exists(scratch.path() / "lineindex.bin"));
  EXPECT_EQ(knownStarts(index->snapshot()), naiveStarts(text, '\n'));
  ASSERT_FALSE(reports.empty());
  EXPECT_TRUE(reports.back().isComplete);
  EXPECT_EQ(reports.back().lineCount, 3001);
  EXPECT_EQ(std::count_if(reports.begin(), reports.end(),
                          [](const auto& p) { return p.status == "Index promoted to disk-backed storage"; }),
            1);
  index->apply(table->insert("x\n", 0));  // the promoted store takes edits like any other
  EXPECT_EQ(index->snapshot().lineStart(1), 2);
}

}  // namespace
}  // namespace quorin::storage
