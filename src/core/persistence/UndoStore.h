#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "dispatch/MainQueue.h"
#include "persistence/AvailableMemoryProvider.h"
#include "persistence/MemoryPressureSource.h"
#include "persistence/UndoCapPolicy.h"
#include "persistence/UndoEntry.h"

namespace quorin::persistence {

// A document's undo and redo history, bounded in bytes. Every entry is
// weighed (entryWeight); the running total is kept under a cap derived from
// the memory the host could free now, recomputed when a batch begins. The
// oldest history goes first; under memory pressure everything above the
// floor goes. The save point says whether undo and redo lead back to the
// saved text.
//
// Save point: savePointDepth is the undo depth of the saved text, and the
// document is unmodified exactly when that depth is current and the saved
// text is still reachable. Undo and redo move the depth the history is at,
// never the save point. The saved text becomes unreachable (and
// savePointInvalidated true) when trimming drops the entry below it, when a
// new edit discards the redo entries it lay in, or when pressure drops those
// redo entries; nothing makes it reachable again but the next save.
//
// Thread-safety: main thread only (the pressure handler runs there too).
class UndoStore {
 public:
  // With a main queue, the history subscribes to the process's memory-pressure
  // source and its events trim it; without one (tests, headless tools), none is.
  UndoStore(UndoCapPolicy policy, std::shared_ptr<const AvailableMemoryProvider> memory,
            dispatch::MainQueue* mainQueue = nullptr);
  ~UndoStore();
  UndoStore(const UndoStore&) = delete;
  UndoStore& operator=(const UndoStore&) = delete;

  // Recomputes the cap for the operation about to run and returns it; the
  // editing layer compares an operation's expected weight with it to warn
  // before doing something that cannot be undone.
  int64_t refreshOperationCap();
  int64_t activeOperationCapBytes() const { return activeOperationCapBytes_; }

  // Opens a batch; one still open is closed first (as endBatch with this cursor).
  void beginBatch(std::string description, TextSelection cursorBefore);
  bool isBatchOpen() const { return batchBuffer_.has_value() && !batchClosed_; }
  // Inside a batch the entry joins it; outside, it is pushed. Returns false
  // when the push had to trim the entry itself away (the edit stands but
  // cannot be undone).
  bool record(UndoEntry entry);
  // Closes the batch into one compound entry and pushes it. No open batch, a
  // batch closed already or an empty one: records nothing and returns true.
  bool endBatch(TextSelection cursorAfter);

  // The entry to apply backwards (the caller does), now redoable; absent
  // when there is nothing to undo. An open batch is closed first.
  std::optional<UndoEntry> undo();
  std::optional<UndoEntry> redo();
  bool canUndo() const { return !undoStack_.empty(); }
  bool canRedo() const { return !redoStack_.empty(); }
  const UndoEntry* nextUndo() const { return undoStack_.empty() ? nullptr : &undoStack_.back(); }
  const UndoEntry* nextRedo() const { return redoStack_.empty() ? nullptr : &redoStack_.back(); }

  void markSaved();
  // The file no longer holds any text of this history (it was saved with
  // text the history has since moved away from): unmodified only after the next save.
  void invalidateSavePoint() { savePointInvalidated_ = true; }
  bool isAtSavePoint() const {
    return !savePointInvalidated_ && static_cast<int64_t>(undoStack_.size()) == savePointDepth_;
  }
  // The edits made since the save, oldest first: what an in-place save patches.
  std::vector<UndoEntry> entriesAboveSavePoint() const;
  void clear();
  // Trims to the floor: redo entries first, then the oldest undo entries.
  void handleMemoryPressure(MemoryPressureLevel level);

  int64_t memoryWeight() const { return memoryWeight_; }
  int64_t savePointDepth() const { return savePointDepth_; }
  bool savePointInvalidated() const { return savePointInvalidated_; }
  size_t undoCount() const { return undoStack_.size(); }
  size_t redoCount() const { return redoStack_.size(); }

 private:
  bool push(UndoEntry entry);
  void trimTo(int64_t limit);
  void dropOldestUndo();
  void dropRedo();
  void addWeight(int64_t weight);

  const UndoCapPolicy capPolicy_;
  const std::shared_ptr<const AvailableMemoryProvider> memoryProvider_;
  std::deque<UndoEntry> undoStack_;  // oldest first
  std::deque<UndoEntry> redoStack_;  // the last one is redone next; the first is the newest edit
  int64_t memoryWeight_ = 0;
  int64_t activeOperationCapBytes_;
  int64_t savePointDepth_ = 0;
  bool savePointInvalidated_ = false;
  std::optional<std::vector<UndoEntry>> batchBuffer_;
  TextSelection batchCursorBefore_;
  std::string batchDescription_;
  int64_t batchBufferWeight_ = 0;
  bool batchClosed_ = false;
  std::unique_ptr<MemoryPressureSubscription> pressure_;  // last: gone before the rest goes
};

}  // namespace quorin::persistence
