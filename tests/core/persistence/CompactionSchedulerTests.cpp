#include <gtest/gtest.h>

#include "dispatch/ManualMainQueue.h"
#include "persistence/CompactionScheduler.h"
#include "storage/StorageTestSupport.h"
#include "support/ManualExecutor.h"

namespace quorin::persistence {
namespace {

using testing::ManualExecutor;

constexpr uint64_t kSecond = 1'000'000'000;

// A table of `pieces` pieces: typed one byte at a time into the original, so
// the typed pieces continue each other and compaction can merge them.
std::shared_ptr<storage::PieceTable> tableWithPieces(const testing::TempDir& dir, int pieces) {
  auto table = std::make_shared<storage::PieceTable>(testing::bufferOver(dir, std::string(1000, 'x')));
  for (int i = 0; table->pieceCount() < static_cast<size_t>(pieces); ++i) table->insert("y", 1 + i);
  return table;
}

TEST(CompactionScheduler, RunsOnlyAfterAnIdlePauseAndAtTheThreshold) {
  testing::TempDir dir;
  dispatch::ManualMainQueue main;
  auto queue = std::make_shared<ManualExecutor>();
  auto table = tableWithPieces(dir, 41);
  auto scheduler = CompactionScheduler::make(table, main, queue, 41, 2.0);

  // Editing every second keeps postponing it.
  for (int i = 0; i < 5; ++i) {
    scheduler->noteActivity();
    main.advance(kSecond);
  }
  EXPECT_TRUE(queue->tasks.empty());
  main.advance(kSecond);  // two seconds since the last edit
  ASSERT_EQ(queue->tasks.size(), 1u);
  EXPECT_TRUE(scheduler->isRunning());
  scheduler->noteActivity();
  main.advance(3 * kSecond);  // one at a time
  EXPECT_EQ(queue->tasks.size(), 1u);

  queue->runAll();
  main.runPending();
  EXPECT_FALSE(scheduler->isRunning());
  EXPECT_EQ(scheduler->totalRuns(), 1);
  ASSERT_TRUE(scheduler->lastResult());
  EXPECT_EQ(scheduler->lastResult()->piecesBefore, static_cast<int64_t>(41));
  EXPECT_LT(table->pieceCount(), 41u);
}

TEST(CompactionScheduler, BelowThresholdOrClosedDocumentDoesNothing) {
  testing::TempDir dir;
  dispatch::ManualMainQueue main;
  auto queue = std::make_shared<ManualExecutor>();
  auto table = tableWithPieces(dir, 40);
  auto scheduler = CompactionScheduler::make(table, main, queue, 41, 2.0);
  ASSERT_EQ(table->pieceCount(), 40u);
  scheduler->noteActivity();
  main.advance(3 * kSecond);
  EXPECT_TRUE(queue->tasks.empty());
  EXPECT_EQ(scheduler->totalRuns(), 0);

  scheduler->noteActivity();
  table.reset();  // the document went away
  main.advance(3 * kSecond);
  EXPECT_TRUE(queue->tasks.empty());
}

}  // namespace
}  // namespace quorin::persistence
