#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "compare/CompareSide.h"
#include "compare/LineDiff.h"
#include "compare/LineKeys.h"
#include "compare/SideReader.h"
#include "dispatch/MainQueue.h"

namespace quorin::compare {

struct CompareRequest {
  CompareSide left;
  CompareSide right;
  LineKeyOptions options;
  int budget = kCompareBudget;
  int64_t sideByteLimit = kSideByteLimit;
};

// What a finished comparison found. Line numbers in `diff` count from the
// start of each side's covered range (the slice's first line for a slice).
struct CompareOutcome {
  DiffResult diff;
  int64_t leftLineCount = 0;  // lines compared
  int64_t rightLineCount = 0;
  int64_t leftBytesCompared = 0;
  int64_t rightBytesCompared = 0;
  std::vector<std::string> notices;  // the capped notice last when capped
  bool cancelled = false;            // nothing else is meaningful then
  int64_t leftVersion = 0;           // the snapshots' versions: a result older than the text is stale
  int64_t rightVersion = 0;
  double elapsedSeconds = 0;

  bool identical() const { return !cancelled && diff.changes.empty(); }
};

// Bytes of both sides read so far, for a progress bar. The diff itself is
// bounded by the budget and reported only by the outcome.
struct CompareProgress {
  int64_t bytesRead = 0;
  int64_t bytesTotal = 0;
  double fraction() const {
    return bytesTotal <= 0 ? 1.0
                           : std::min(1.0, static_cast<double>(bytesRead) / static_cast<double>(bytesTotal));
  }
};

// Reads both sides (at the same time, on the worker pool), keys their lines
// and diffs the keys. Blocks the caller; for headless use and for the job
// below. `progress` is called from the reading threads. A cancelled run
// returns an outcome with `cancelled` set.
std::expected<CompareOutcome, CompareError> compareSides(
    const CompareRequest& request, const std::atomic<bool>* cancelled = nullptr,
    const std::function<void(const CompareProgress&)>& progress = {});

// One comparison running off the main thread, as the compare window starts
// it. Progress (throttled to a few updates a second) and the single
// completion arrive on the main queue; after cancel() the completion still
// comes, with `cancelled` set, unless the job was dropped first.
//
// Lifetime: the caller holds the job; the worker holds it too until it
// finishes, so dropping it does not stop the work, cancel() does.
// Thread-safety: start and cancel from any thread.
class CompareJob : public std::enable_shared_from_this<CompareJob> {
 public:
  using ProgressHandler = std::function<void(const CompareProgress&)>;
  using CompletionHandler = std::function<void(const std::expected<CompareOutcome, CompareError>&)>;

  static std::shared_ptr<CompareJob> start(CompareRequest request, dispatch::MainQueue& mainQueue,
                                           ProgressHandler onProgress, CompletionHandler onCompletion);
  void cancel() { cancelled_.store(true, std::memory_order_relaxed); }
  bool isCancelled() const { return cancelled_.load(std::memory_order_relaxed); }

 private:
  CompareJob(dispatch::MainQueue& mainQueue, ProgressHandler onProgress, CompletionHandler onCompletion)
      : mainQueue_(mainQueue), onProgress_(std::move(onProgress)), onCompletion_(std::move(onCompletion)) {}
  void run(const CompareRequest& request);
  void reportProgress(const CompareProgress& progress);

  dispatch::MainQueue& mainQueue_;
  const ProgressHandler onProgress_;
  const CompletionHandler onCompletion_;
  std::atomic<bool> cancelled_{false};
  std::atomic<uint64_t> lastProgressNs_{0};
  std::atomic<bool> progressPending_{false};  // one progress task in the main queue at a time
};

}  // namespace quorin::compare
