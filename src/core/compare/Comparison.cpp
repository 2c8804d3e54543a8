#include "compare/Comparison.h"

#include <array>
#include <optional>

#include "compare/CompareNotices.h"
#include "dispatch/Clock.h"
#include "dispatch/WorkerPool.h"

namespace quorin::compare {
namespace {

constexpr uint64_t kProgressIntervalNs = 100'000'000;

int64_t bytesToRead(const CompareSide& side, int64_t limit) {
  return std::clamp<int64_t>(side.range.length(), 0, limit);
}

}  // namespace

std::expected<CompareOutcome, CompareError> compareSides(
    const CompareRequest& request, const std::atomic<bool>* cancelled,
    const std::function<void(const CompareProgress&)>& progress) {
  const uint64_t startNs = dispatch::monotonicNanos();
  const std::array<const CompareSide*, 2> sides = {&request.left, &request.right};
  std::array<std::atomic<int64_t>, 2> read{};
  const int64_t total =
      bytesToRead(request.left, request.sideByteLimit) + bytesToRead(request.right, request.sideByteLimit);
  std::array<std::optional<std::expected<SideKeys, CompareError>>, 2> keys;
  // Reading and hashing is the linear part of a comparison: one side per
  // worker halves it on a machine with two cores or more.
  dispatch::WorkerPool::shared().parallelFor(2, [&](size_t i) {
    std::function<void(int64_t)> onRead;
    if (progress) {
      onRead = [&, i](int64_t bytes) {
        read[i].store(bytes, std::memory_order_relaxed);
        progress({read[0].load(std::memory_order_relaxed) + read[1].load(std::memory_order_relaxed), total});
      };
    }
    keys[i] = readSideKeys(*sides[i], request.options, request.sideByteLimit, cancelled, onRead);
  });

  CompareOutcome outcome;
  outcome.leftVersion = request.left.snapshot.version();
  outcome.rightVersion = request.right.snapshot.version();
  const auto isCancelled = [&] { return cancelled && cancelled->load(std::memory_order_relaxed); };
  if (isCancelled()) {
    outcome.cancelled = true;
    return outcome;
  }
  for (auto& side : keys) {
    if (!*side) return std::unexpected(side->error());
  }
  SideKeys& left = **keys[0];
  SideKeys& right = **keys[1];
  outcome.diff = diffLines(left.keys, right.keys, request.budget, cancelled);
  if (isCancelled()) {
    CompareOutcome cancelledOutcome;
    cancelledOutcome.cancelled = true;
    cancelledOutcome.leftVersion = outcome.leftVersion;
    cancelledOutcome.rightVersion = outcome.rightVersion;
    return cancelledOutcome;
  }
  outcome.leftLineCount = static_cast<int64_t>(left.keys.size());
  outcome.rightLineCount = static_cast<int64_t>(right.keys.size());
  outcome.leftBytesCompared = left.bytesRead;
  outcome.rightBytesCompared = right.bytesRead;
  outcome.notices = comparisonNotices(request.left, left, request.right, right, request.sideByteLimit);
  if (outcome.diff.capped) outcome.notices.emplace_back(kCappedNotice);
  outcome.elapsedSeconds = static_cast<double>(dispatch::monotonicNanos() - startNs) / 1e9;
  return outcome;
}

std::shared_ptr<CompareJob> CompareJob::start(CompareRequest request, dispatch::MainQueue& mainQueue,
                                              ProgressHandler onProgress, CompletionHandler onCompletion) {
  std::shared_ptr<CompareJob> job(new CompareJob(mainQueue, std::move(onProgress), std::move(onCompletion)));
  auto shared = std::make_shared<CompareRequest>(std::move(request));
  dispatch::WorkerPool::shared().async([job, shared] { job->run(*shared); });
  return job;
}

void CompareJob::run(const CompareRequest& request) {
  std::function<void(const CompareProgress&)> progress;
  if (onProgress_) progress = [this](const CompareProgress& p) { reportProgress(p); };
  auto result = std::make_shared<std::expected<CompareOutcome, CompareError>>(
      compareSides(request, &cancelled_, progress));
  if (cancelled_.load(std::memory_order_relaxed) && *result) {
    CompareOutcome cancelledOutcome;
    cancelledOutcome.cancelled = true;
    *result = std::move(cancelledOutcome);
  }
  mainQueue_.post([job = shared_from_this(), result] {
    if (job->onCompletion_) job->onCompletion_(*result);
  });
}

void CompareJob::reportProgress(const CompareProgress& progress) {
  const uint64_t now = dispatch::monotonicNanos();
  uint64_t last = lastProgressNs_.load(std::memory_order_relaxed);
  if (now - last < kProgressIntervalNs && last != 0) return;
  if (!lastProgressNs_.compare_exchange_strong(last, now)) return;
  if (progressPending_.exchange(true)) return;  // the main thread has not caught up: skip, the next one comes
  mainQueue_.post([job = shared_from_this(), progress] {
    job->progressPending_.store(false);
    if (!job->isCancelled() && job->onProgress_) job->onProgress_(progress);
  });
}

}  // namespace quorin::compare
