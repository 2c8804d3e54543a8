#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "dispatch/Executor.h"
#include "dispatch/MainQueue.h"
#include "dispatch/Timer.h"
#include "storage/PieceTable.h"

namespace quorin::persistence {

// Merges the piece table's pieces when the user pauses: every edit re-arms a
// one-shot idle timer, and when it fires with the table at or above the
// piece threshold, one compaction with a 0.05 s budget runs on the
// compaction queue. Continuous typing postpones it indefinitely; an edit that
// lands during the merge wins (the table drops the merged list).
//
// Lifetime: create with make(); the timer and the job hold the scheduler and
// the table weakly, so a closed document ends both. Thread-safety: main
// thread only; only the merge itself runs on the queue.
class CompactionScheduler : public std::enable_shared_from_this<CompactionScheduler> {
 public:
  static constexpr int64_t kDefaultPieceThreshold = 100'000;
  static constexpr double kDefaultIdleSeconds = 2.0;
  static constexpr double kCompactionBudgetSeconds = 0.05;

  // queue: null for the process's "quorin.compaction" queue.
  static std::shared_ptr<CompactionScheduler> make(std::weak_ptr<storage::PieceTable> table,
                                                   dispatch::MainQueue& mainQueue,
                                                   std::shared_ptr<dispatch::Executor> queue = nullptr,
                                                   int64_t pieceThreshold = kDefaultPieceThreshold,
                                                   double idleSeconds = kDefaultIdleSeconds);

  // After every edit.
  void noteActivity();

  bool isArmed() const { return idleTimer_ && idleTimer_->isActive(); }
  bool isRunning() const { return isRunning_; }
  const std::optional<storage::PieceTable::CompactionResult>& lastResult() const { return lastResult_; }
  int64_t totalRuns() const { return totalRuns_; }
  int64_t totalPiecesMerged() const { return totalPiecesMerged_; }

 private:
  CompactionScheduler(std::weak_ptr<storage::PieceTable> table, dispatch::MainQueue& mainQueue,
                      std::shared_ptr<dispatch::Executor> queue, int64_t pieceThreshold, double idleSeconds);
  void fire();
  void finish(const storage::PieceTable::CompactionResult& result);

  const std::weak_ptr<storage::PieceTable> table_;
  dispatch::MainQueue& mainQueue_;
  const std::shared_ptr<dispatch::Executor> queue_;
  const double idleInterval_;
  const int64_t pieceThreshold_;
  std::unique_ptr<dispatch::Timer> idleTimer_;
  bool isRunning_ = false;
  std::optional<storage::PieceTable::CompactionResult> lastResult_;
  int64_t totalRuns_ = 0;
  int64_t totalPiecesMerged_ = 0;
};

}  // namespace quorin::persistence
