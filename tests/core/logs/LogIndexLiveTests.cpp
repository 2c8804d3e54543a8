#include <gtest/gtest.h>

#include <thread>

#include "LogIndexTestSupport.h"
#include "base/Mutex.h"
#include "dispatch/SerialQueue.h"
#include "support/ManualExecutor.h"

namespace quorin::logs {
namespace {

using testing::ManualExecutor;

struct Live {
  std::shared_ptr<ManualExecutor> worker = std::make_shared<ManualExecutor>();
  std::shared_ptr<ManualExecutor> notify = std::make_shared<ManualExecutor>();
  std::vector<std::shared_ptr<const LogIndexData>> seen;
  std::shared_ptr<LogIndex> index;

  explicit Live(int32_t year = 2026) {
    index = LogIndex::create(
        {}, {.modificationYear = year}, worker, notify,
        [this](std::shared_ptr<const LogIndexData> data) { seen.push_back(std::move(data)); });
  }
  const LogIndexData& settle() {
    worker->runAll();
    notify->runAll();
    return *index->data();
  }
};

void expectReference(const LogDoc& doc, const LogIndexData& data, int32_t year = 2026) {
  expectMatches(data, referenceFacts(doc.text(), data.format, {}, year));
}

std::string randomLines(std::mt19937& random) {
  static constexpr std::string_view kPieces[] = {
      "2026-03-02 10:00:00 ERROR inserted\n",
      "\tat continuation\n",
      "2026-03-01 09:00:00 WARN back in time\n",
      "2026-03-09 10:00:00 FATAL late\n",
      "no newline here ",
      "INFO ",
  };
  std::string text;
  for (uint32_t n = random() % 4; n-- > 0;) text += kPieces[random() % std::size(kPieces)];
  return text;
}

// Insertions and deletions of every size, folded in one at a time, leave the
// index as a rebuild of the edited text would be (bounds of blocks aside),
// with blocks neither tiny nor huge; with the line index's edits spliced in
// or kept as pending deltas, and edits folded one by one or several at once.
TEST(LogIndexLive, RandomEditsMatchTheReference) {
  for (int64_t spliceLimit : {int64_t{1} << 20, int64_t{0}}) {
    storage::LineIndexBuildOptions options;
    options.limits.spliceShiftLimit = spliceLimit;
    LogDoc doc(generatedLog(7, 25'000), options);
    Live live;
    live.index->start(doc.source());
    ASSERT_TRUE(live.settle().complete);
    std::mt19937 random(11);
    for (int round = 0; round < 60; ++round) {
      const int64_t length = doc.table->snapshot().totalLength();
      const int64_t at = random() % (length + 1);
      storage::EditResult edit;
      if (random() % 2 == 0) {
        std::string text = randomLines(random);
        if (round % 10 == 0) text = generatedLog(round, 6000);
        edit = doc.insert(text, at);
      } else {
        const int64_t span = round % 7 == 0 ? 400'000 : random() % 300;
        edit = doc.erase(at, std::min(length, at + span));
      }
      live.index->noteEdit(edit, doc.source());
      // Some edits pile up before the worker runs: their line snapshots are
      // stale by then, and the last one's task folds them in together.
      if (round >= 30 && round % 4 != 3) continue;
      const LogIndexData& data = live.settle();
      ASSERT_EQ(data.snapshotVersion, doc.table->snapshot().version());
      expectReference(doc, data);
      for (size_t b = 0; b + 1 < data.blocks.size(); ++b) {
        EXPECT_GE(data.blocks[b].lineCount, kLogBlockLines / 4);
        EXPECT_LE(data.blocks[b].lineCount, kLogBlockLines * 3 / 2 + 1);
      }
      if (::testing::Test::HasFailure()) return;
    }
  }
}

// A followed file grows: the new lines (and the rest of a last line that had
// no terminator yet) are read; nothing before the last block is.
TEST(LogIndexLive, AppendsExtendTheIndex) {
  LogDoc doc(generatedLog(8, 9'000) + "2026-03-20 10:00:00 WARN partial");
  Live live;
  live.index->start(doc.source());
  live.settle();
  std::mt19937 random(3);
  for (int round = 0; round < 8; ++round) {
    const std::string more =
        round == 3 ? std::string() : " ERROR\n" + generatedLog(round, 3000 * round) + "tail";
    doc.insert(more, doc.table->snapshot().totalLength());
    live.index->noteAppend(doc.source());
    expectReference(doc, live.settle());
  }
  EXPECT_EQ(live.seen.back(), live.index->data());
}

TEST(LogIndexLive, AFollowedFileThatStartsEmptyBecomesALog) {
  LogDoc doc("");
  Live live;
  live.index->start(doc.source());
  EXPECT_FALSE(live.settle().format.has_value());
  doc.insert(generatedLog(5, 300), 0);
  live.index->noteAppend(doc.source());
  EXPECT_EQ(live.settle().format, TimestampFormat::iso8601);
  expectReference(doc, *live.index->data());
}

// A build over a line index that is still scanning covers the lines whose
// end is known; as the line index goes on, appends carry the index along.
TEST(LogIndexLive, FollowsALineIndexStillBuilding) {
  auto lineQueue = std::make_shared<ManualExecutor>();
  storage::LineIndexBuildOptions options;
  options.queue = lineQueue;
  options.limits.firstPassLines = 5000;
  options.limits.passLines = 7000;
  options.limits.chunkBytes = 4096;
  LogDoc doc(generatedLog(9, 40'000), options, false);
  Live live;
  live.index->start(doc.source());
  const LogIndexData& first = live.settle();
  EXPECT_FALSE(first.complete);
  EXPECT_EQ(first.linesIndexed, doc.index->snapshot().knownLineCount() - 1);
  while (lineQueue->runOne()) {
    live.index->noteAppend(doc.source());
    live.settle();
  }
  ASSERT_TRUE(doc.index->snapshot().isComplete);
  EXPECT_TRUE(live.index->data()->complete);
  expectReference(doc, *live.index->data());
}

TEST(LogIndexLive, StartAndCancelDropWorkPostedBefore) {
  LogDoc doc(generatedLog(10, 5'000));
  Live live;
  live.index->start(doc.source());
  live.index->cancel();
  EXPECT_EQ(live.settle().linesIndexed, 0);
  EXPECT_TRUE(live.seen.empty());
  SeverityRules rules;
  ASSERT_TRUE(rules.setUserRules({{.pattern = "message", .level = Level::fatal}}).has_value());
  live.index->setRules(rules, doc.source());
  const LogIndexData& data = live.settle();
  EXPECT_EQ(data.rulesGeneration, rules.generation());
  EXPECT_EQ(live.seen.size(), 1u);
  expectMatches(data, referenceFacts(doc.text(), data.format, rules, 2026));
  // A publication already on its way when the index is cancelled is not delivered.
  const auto edit = doc.insert("2026-03-01 00:00:00 ERROR x\n", 0);
  live.index->noteEdit(edit, doc.source());
  live.worker->runAll();
  live.index->cancel();
  live.notify->runAll();
  EXPECT_EQ(live.seen.size(), 1u);
}

// Real threads: edits arrive while the first build runs on its own queue and
// the shared pool; publications never go back to an older version, and the
// index settles on the last text.
TEST(LogIndexLive, EditsWhileABuildRuns) {
  LogDoc doc(generatedLog(12, 150'000));
  auto worker = std::make_shared<dispatch::SerialQueue>("test.logindex");
  auto notify = std::make_shared<dispatch::SerialQueue>("test.logindex.notify");
  base::Mutex lock;
  std::vector<int64_t> versions;
  auto index = LogIndex::create({}, {.chunkLines = kLogBlockLines}, worker, notify,
                                [&](std::shared_ptr<const LogIndexData> data) {
                                  base::MutexLock hold(lock);
                                  versions.push_back(data->snapshotVersion);
                                });
  index->start(doc.source());
  std::mt19937 random(4);
  for (int round = 0; round < 20; ++round) {
    const int64_t at = random() % doc.table->snapshot().totalLength();
    const auto edit = doc.insert(randomLines(random), at);
    index->noteEdit(edit, doc.source());
    if (round % 5 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  const int64_t last = doc.table->snapshot().version();
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!(index->data()->complete && index->data()->snapshotVersion == last) &&
         std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  expectReference(doc, *index->data());
  worker->sync([] {});
  notify->sync([] {});
  base::MutexLock hold(lock);
  ASSERT_FALSE(versions.empty());
  EXPECT_TRUE(std::is_sorted(versions.begin(), versions.end()));
  EXPECT_EQ(versions.back(), last);
}

}  // namespace
}  // namespace quorin::logs
