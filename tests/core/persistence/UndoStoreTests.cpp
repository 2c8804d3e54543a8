#include <gtest/gtest.h>

#include "dispatch/ManualMainQueue.h"
#include "persistence/AvailableMemoryProvider.h"
#include "persistence/UndoStore.h"

namespace quorin::persistence {
namespace {

class FixedMemory final : public AvailableMemoryProvider {
 public:
  explicit FixedMemory(int64_t bytes) : bytes_(bytes) {}
  int64_t availableBytes() const override { return bytes_; }

 private:
  int64_t bytes_;
};

UndoEntry insertion(int64_t offset, std::string bytes) {
  UndoEntry e;
  e.docOffsetAtEdit = offset;
  e.insertedBytes = sharedBytes(std::move(bytes));
  return e;
}

UndoStore storeWithCap(int64_t cap) {
  return UndoStore(UndoCapPolicy{0.25, cap, cap}, std::make_shared<FixedMemory>(0));
}

TEST(UndoCap, ShareOfReclaimableBetweenFloorAndCeiling) {
  const UndoCapPolicy policy;
  EXPECT_EQ(policy.capFor(0, int64_t{1} << 30), 268'435'456);
  EXPECT_EQ(policy.capFor(0, 100 << 20), 104'857'600);
  EXPECT_EQ(policy.capFor(0, int64_t{64} << 30), 4'294'967'296);
  EXPECT_EQ(policy.capFor(int64_t{1} << 30, int64_t{1} << 30),
            536'870'912);  // the history counts as reclaimable
  EXPECT_EQ(policy.capFor(-5, int64_t{1} << 30), 268'435'456);
}

TEST(UndoCap, MeminfoSumsFreeCacheAndReclaimableSlab) {
  const char* meminfo =
      "MemTotal:       24000000 kB\nMemFree:         1000 kB\nMemAvailable:   9999999 kB\n"
      "Active(file):     200 kB\nInactive(file):    30 kB\nSReclaimable:       4 kB\nShmem: 77 kB\n";
  EXPECT_EQ(reclaimableFromMeminfo(meminfo), 1234 * 1024);
  EXPECT_EQ(reclaimableFromMeminfo("garbage"), 0);
  EXPECT_GT(HostStatisticsMemoryProvider().availableBytes(), 0);
}

TEST(UndoStore, AnEntryOverTheCapTrimsItselfAway) {
  UndoStore store = storeWithCap(1000);
  EXPECT_TRUE(store.record(insertion(0, "a")));
  EXPECT_FALSE(store.record(insertion(1, std::string(800, 'b'))));  // trims itself away too
  EXPECT_EQ(store.undoCount(), 0u);
  EXPECT_EQ(store.memoryWeight(), 0);
  EXPECT_TRUE(store.savePointInvalidated());
  EXPECT_FALSE(store.isAtSavePoint());
}

TEST(UndoStore, BatchesCloseOnceIntoOneEntry) {
  UndoStore store = storeWithCap(1 << 20);
  EXPECT_TRUE(store.endBatch({}));  // none open
  store.beginBatch("Replace All", TextSelection::at(3));
  EXPECT_TRUE(store.endBatch(TextSelection::at(4)));  // empty: nothing recorded
  EXPECT_EQ(store.undoCount(), 0u);

  store.beginBatch("Typing", TextSelection::at(0));
  store.record(insertion(0, "a"));
  store.record(insertion(1, "b"));
  EXPECT_EQ(store.memoryWeight(), 514);
  EXPECT_TRUE(store.endBatch(TextSelection::at(2)));
  EXPECT_TRUE(store.endBatch(TextSelection::at(9)));  // twice: harmless
  ASSERT_EQ(store.undoCount(), 1u);
  const UndoEntry& entry = *store.nextUndo();
  EXPECT_TRUE(entry.isBatch);
  EXPECT_EQ(entry.description, "Typing");
  EXPECT_EQ(entry.cursorAfter, TextSelection::at(2));
  EXPECT_EQ(entry.batchSubEdits.size(), 2u);
  EXPECT_EQ(store.memoryWeight(), 256 + 514);

  // A batch begun while one is open closes that one first: its edit stays undoable and weighed.
  store.beginBatch("Paste", TextSelection::at(2));
  store.record(insertion(2, "c"));
  store.beginBatch("Replace", TextSelection::at(3));
  store.record(insertion(3, "d"));
  EXPECT_TRUE(store.endBatch(TextSelection::at(4)));
  ASSERT_EQ(store.undoCount(), 3u);
  EXPECT_EQ(store.entriesAboveSavePoint()[1].description, "Paste");
  EXPECT_EQ(store.entriesAboveSavePoint()[1].cursorAfter, TextSelection::at(3));
  EXPECT_EQ(store.memoryWeight(), 3 * 256 + 514 + 2 * 257);
}

// Undo and redo across the save point are checked through the document's
// random model; here what trimming and memory pressure do to it.
TEST(UndoStore, TrimAndPressureMoveOrInvalidateTheSavePoint) {
  // Trimming below the save point steps it down, then invalidates it.
  UndoStore small = storeWithCap(3 * 257);
  for (char c : std::string("abc")) small.record(insertion(0, std::string(1, c)));
  small.markSaved();
  small.record(insertion(0, "d"));  // drops "a": the save point moves down with the stack
  EXPECT_EQ(small.savePointDepth(), 2);
  small.undo();
  EXPECT_TRUE(small.isAtSavePoint());
  small.clear();
  EXPECT_TRUE(small.savePointInvalidated());
  EXPECT_EQ(small.memoryWeight(), 0);

  // Pressure drops redo entries first, down to the floor.
  UndoStore pressured(UndoCapPolicy{0.25, 600, 1 << 20}, std::make_shared<FixedMemory>(1 << 22));
  pressured.refreshOperationCap();
  for (int i = 0; i < 4; ++i) pressured.record(insertion(i, "x"));
  pressured.markSaved();
  pressured.undo();
  pressured.undo();
  pressured.handleMemoryPressure(MemoryPressureLevel::warning);
  EXPECT_EQ(pressured.memoryWeight(), 2 * 257);
  EXPECT_EQ(pressured.redoCount(), 0u);
  EXPECT_TRUE(pressured.savePointInvalidated());  // the saved text lay two redos away
}

TEST(MemoryPressureSource, StartsAndStopsWithoutDeliveringAfterDestruction) {
  dispatch::ManualMainQueue main;
  int events = 0;
  {
    UndoStore store(UndoCapPolicy{}, std::make_shared<FixedMemory>(0), &main);
    auto source = MemoryPressureSource::start(main, [&](MemoryPressureLevel) { ++events; });
  }  // both watching threads are joined here
  main.runPending();
  EXPECT_EQ(events, 0);
}

}  // namespace
}  // namespace quorin::persistence
