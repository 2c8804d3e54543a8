#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/Mutex.h"
#include "dispatch/Executor.h"
#include "dispatch/MainQueue.h"
#include "storage/EditResult.h"
#include "storage/IndexDelta.h"
#include "storage/LineIndexEpochBox.h"
#include "storage/LineIndexOptions.h"
#include "storage/LineIndexSnapshot.h"
#include "storage/LineIndexTier.h"
#include "storage/LineOffsetStorage.h"
#include "storage/PieceTable.h"

namespace quorin::storage {

struct LineIndexBuildOptions {
  std::shared_ptr<dispatch::Executor> queue;  // null: the process's "quorin.lineindex" queue
  dispatch::MainQueue* mainQueue = nullptr;   // receives progress; null: none is reported
  std::function<void(const LineIndexProgress&)> onProgress;
  std::optional<LiveTierPromotion> promotion;
  LineIndexLimits limits;
};

// Where every line of the document begins, for files of any size, without
// making the user wait. startBuild() finds the first screen's worth of lines
// on the calling thread and the rest in bounded background passes; edits
// made meanwhile are spliced into the stored starts or, when that would mean
// shifting millions of entries, kept as deltas applied on the fly. Readers
// on any thread use immutable snapshots.
//
// Coordinates: the stored ("base") starts are document offsets as of the
// base text; base offset x past every delta is document offset
// x + totalByteShift. baseBytesScanned and baseBufferLength are base offsets
// (the indexed range runs from windowStart).
//
// Lifetime: create() returns a shared pointer; background passes hold the
// index weakly, so releasing it ends the build. Progress callbacks run on the
// main queue and only while the index is alive.
//
// Thread-safety: every member may be called from any thread; apply() must be
// called in edit order, after the piece table took the edit and before the
// next edit (the document does both on the main thread). One lock guards the
// bookkeeping and is never held while scanning; lock order: this index's
// lock, then the piece table's, then the storage's.
class InMemoryLineIndex : public std::enable_shared_from_this<InMemoryLineIndex> {
 public:
  using Options = LineIndexBuildOptions;

  // Creates the storage for `tier` (falling back to memory, and saying why
  // in tierName, when a scratch file cannot be made) and the first entry.
  // Does not scan.
  static std::shared_ptr<InMemoryLineIndex> create(std::shared_ptr<PieceTable> table,
                                                   const LineIndexTier& tier, LineIndexWindow window,
                                                   Options options = {});
  // The serial queue every index shares unless told otherwise: one thread
  // for all documents, passes from several documents taking turns.
  static std::shared_ptr<dispatch::Executor> sharedQueue();

  InMemoryLineIndex(const InMemoryLineIndex&) = delete;
  InMemoryLineIndex& operator=(const InMemoryLineIndex&) = delete;

  // The synchronous first pass, then the background passes.
  void startBuild();
  LineIndexSnapshot snapshot() const;
  // Takes in one edit of the piece table and returns the snapshot after it.
  LineIndexSnapshot apply(const EditResult& edit);
  // Throws the base away and builds again under a new epoch (after a reload,
  // a rewrite, or to fold deltas in).
  void restart();
  // Stops the build at its next check; what was found stays usable.
  void cancel();
  // Blocks until the build is complete or cancelled, or the timeout passes;
  // for headless callers. True when complete.
  bool waitUntilComplete(std::chrono::milliseconds timeout) const;

  std::string tierName() const;
  // The indexed range in document coordinates now (edits inside it move its end).
  ByteRange indexedRange() const;
  LineIndexProgress progress() const;
  int64_t pendingDeltaMemoryWeight() const;
  const LineIndexWindow& window() const { return window_; }

 private:
  InMemoryLineIndex(std::shared_ptr<PieceTable> table, LineIndexWindow window, Options options);

  struct PassBudget {
    int64_t lines;
    int64_t bytes;
  };
  enum class PassOutcome { committed, discarded, nothingToDo };

  PassOutcome runPass(PassBudget budget);
  void runBackgroundPass();
  void scheduleLocked() REQUIRES(lock_);
  void resetBaseLocked(int64_t start, std::optional<int64_t> end) REQUIRES(lock_);
  bool appendLocked(std::span<const int64_t> starts) REQUIRES(lock_);
  // scannedAfter: where the scan resumes when the edit crossed its frontier.
  void spliceLocked(const EditResult& edit, std::optional<int64_t> scannedAfter) REQUIRES(lock_);
  bool applyAsDeltaLocked(const EditResult& edit) REQUIRES(lock_);  // false: the edit needs a restart
  void maybePromote();
  LineIndexSnapshot snapshotLocked() const REQUIRES(lock_);
  LineIndexProgress progressLocked() const REQUIRES(lock_);
  void postProgress(LineIndexProgress progress);
  int64_t documentShiftLocked() const REQUIRES(lock_);

  const std::shared_ptr<PieceTable> table_;
  const LineIndexWindow window_;
  const Options options_;
  const std::shared_ptr<LineIndexEpochBox> epochBox_ = std::make_shared<LineIndexEpochBox>();
  const uint8_t terminator_;

  mutable base::Mutex lock_;
  mutable base::ConditionVariable buildChanged_;
  // The lock guards the pointer; the store has a lock of its own.
  std::shared_ptr<LineOffsetStorage> storage_ GUARDED_BY(lock_);
  std::string tierName_ GUARDED_BY(lock_);
  bool promotionDone_ GUARDED_BY(lock_) = false;  // promoted, or tried and failed
  std::optional<std::string> pendingStatus_ GUARDED_BY(lock_);
  int64_t windowStart_ GUARDED_BY(lock_) = 0;
  int64_t baseBytesScanned_ GUARDED_BY(lock_) = 0;
  int64_t baseBufferLength_ GUARDED_BY(lock_) = 0;
  bool isComplete_ GUARDED_BY(lock_) = false;
  int64_t estimatedLineCount_ GUARDED_BY(lock_) = 1;
  std::shared_ptr<const std::vector<IndexDelta>> pendingDeltas_ GUARDED_BY(lock_);  // null when none
  int64_t pendingDeltaMemoryWeight_ GUARDED_BY(lock_) = 0;
  bool cancelled_ GUARDED_BY(lock_) = false;
  bool passScheduled_ GUARDED_BY(lock_) = false;  // a background pass is queued
  int64_t appliedVersion_ GUARDED_BY(lock_) = 0;  // the table version the index has seen
  int64_t chunksProcessed_ GUARDED_BY(lock_) = 0;
  double buildDurationSeconds_ GUARDED_BY(lock_) = 0;
};

}  // namespace quorin::storage
