#include "persistence/UndoStore.h"

#include "base/Check.h"

namespace quorin::persistence {

UndoStore::UndoStore(UndoCapPolicy policy, std::shared_ptr<const AvailableMemoryProvider> memory,
                     dispatch::MainQueue* mainQueue)
    : capPolicy_(policy), memoryProvider_(std::move(memory)), activeOperationCapBytes_(policy.floorBytes) {
  if (mainQueue != nullptr) {
    pressure_ = MemoryPressureSubscription::subscribe(
        *mainQueue, [this](MemoryPressureLevel level) { handleMemoryPressure(level); });
  }
}

UndoStore::~UndoStore() { pressure_.reset(); }

void UndoStore::addWeight(int64_t weight) {
  QUORIN_CHECK(!__builtin_add_overflow(memoryWeight_, weight, &memoryWeight_),
               "undo history weight overflows");
}

int64_t UndoStore::refreshOperationCap() {
  activeOperationCapBytes_ =
      capPolicy_.capFor(memoryWeight_, memoryProvider_ ? memoryProvider_->availableBytes() : 0);
  return activeOperationCapBytes_;
}

void UndoStore::beginBatch(std::string description, TextSelection cursorBefore) {
  // A batch still open is closed, not dropped: its edits stand in the text
  // and must stay undoable (and counted) like any other.
  if (isBatchOpen()) endBatch(cursorBefore);
  refreshOperationCap();
  batchBuffer_.emplace();
  batchCursorBefore_ = cursorBefore;
  batchDescription_ = std::move(description);
  batchBufferWeight_ = 0;
  batchClosed_ = false;
}

bool UndoStore::record(UndoEntry entry) {
  if (isBatchOpen()) {
    const int64_t weight = entryWeight(entry);
    addWeight(weight);
    batchBufferWeight_ += weight;
    batchBuffer_->push_back(std::move(entry));
    return true;
  }
  return push(std::move(entry));
}

bool UndoStore::endBatch(TextSelection cursorAfter) {
  if (!batchBuffer_ || batchClosed_) return true;
  std::vector<UndoEntry> edits = std::move(*batchBuffer_);
  batchBuffer_.reset();
  batchClosed_ = true;
  memoryWeight_ -= batchBufferWeight_;
  batchBufferWeight_ = 0;
  if (edits.empty()) return true;
  const int64_t offset = edits.front().docOffsetAtEdit;
  return push(UndoEntry{.docOffsetAtEdit = offset,
                        .cursorBefore = batchCursorBefore_,
                        .cursorAfter = cursorAfter,
                        .isBatch = true,
                        .description = std::move(batchDescription_),
                        .batchSubEdits = std::move(edits)});
}

bool UndoStore::push(UndoEntry entry) {
  // A new edit on top of an undone save discards the way back to it.
  if (static_cast<int64_t>(undoStack_.size()) < savePointDepth_) savePointInvalidated_ = true;
  addWeight(entryWeight(entry));
  undoStack_.push_back(std::move(entry));
  while (!redoStack_.empty()) dropRedo();
  trimTo(activeOperationCapBytes_);
  return !undoStack_.empty();
}

void UndoStore::dropOldestUndo() {
  memoryWeight_ -= entryWeight(undoStack_.front());
  undoStack_.pop_front();
  if (savePointDepth_ >= 1) {
    --savePointDepth_;
  } else {
    savePointInvalidated_ = true;
  }
}

void UndoStore::dropRedo() {
  memoryWeight_ -= entryWeight(redoStack_.front());
  redoStack_.pop_front();
}

void UndoStore::trimTo(int64_t limit) {
  while (memoryWeight_ > limit && !undoStack_.empty()) dropOldestUndo();
}

std::optional<UndoEntry> UndoStore::undo() {
  if (isBatchOpen()) endBatch(batchCursorBefore_);
  if (undoStack_.empty()) return std::nullopt;
  redoStack_.push_back(std::move(undoStack_.back()));
  undoStack_.pop_back();
  return redoStack_.back();
}

std::optional<UndoEntry> UndoStore::redo() {
  if (redoStack_.empty()) return std::nullopt;
  undoStack_.push_back(std::move(redoStack_.back()));
  redoStack_.pop_back();
  return undoStack_.back();
}

void UndoStore::markSaved() {
  savePointDepth_ = static_cast<int64_t>(undoStack_.size());
  savePointInvalidated_ = false;
}

std::vector<UndoEntry> UndoStore::entriesAboveSavePoint() const {
  if (savePointDepth_ >= static_cast<int64_t>(undoStack_.size())) return {};
  return {undoStack_.begin() + savePointDepth_, undoStack_.end()};
}

void UndoStore::clear() {
  // An open batch goes too: its edits could no longer be undone in order.
  if (isBatchOpen()) {
    memoryWeight_ -= batchBufferWeight_;
    batchBufferWeight_ = 0;
    batchBuffer_.reset();
    batchClosed_ = true;
  }
  while (!undoStack_.empty()) dropOldestUndo();
  savePointInvalidated_ = true;
  while (!redoStack_.empty()) dropRedo();
}

void UndoStore::handleMemoryPressure(MemoryPressureLevel) {
  while (!redoStack_.empty() && memoryWeight_ > capPolicy_.floorBytes) dropRedo();
  // The saved text lay in the redo part and some of the way there is gone.
  if (savePointDepth_ > static_cast<int64_t>(undoStack_.size() + redoStack_.size()))
    savePointInvalidated_ = true;
  trimTo(capPolicy_.floorBytes);
}

}  // namespace quorin::persistence
