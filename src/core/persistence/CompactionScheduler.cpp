#include "persistence/CompactionScheduler.h"

#include "dispatch/SerialQueue.h"
#include "dispatch/WeakTask.h"

namespace quorin::persistence {
namespace {

std::shared_ptr<dispatch::Executor> sharedCompactionQueue() {
  static const auto queue =
      std::make_shared<dispatch::SerialQueue>("quorin.compaction", dispatch::QualityOfService::utility);
  return queue;
}

}  // namespace

std::shared_ptr<CompactionScheduler> CompactionScheduler::make(std::weak_ptr<storage::PieceTable> table,
                                                               dispatch::MainQueue& mainQueue,
                                                               std::shared_ptr<dispatch::Executor> queue,
                                                               int64_t pieceThreshold, double idleSeconds) {
  return std::shared_ptr<CompactionScheduler>(
      new CompactionScheduler(std::move(table), mainQueue, queue ? std::move(queue) : sharedCompactionQueue(),
                              pieceThreshold, idleSeconds));
}

CompactionScheduler::CompactionScheduler(std::weak_ptr<storage::PieceTable> table,
                                         dispatch::MainQueue& mainQueue,
                                         std::shared_ptr<dispatch::Executor> queue, int64_t pieceThreshold,
                                         double idleSeconds)
    : table_(std::move(table)),
      mainQueue_(mainQueue),
      queue_(std::move(queue)),
      idleInterval_(idleSeconds),
      pieceThreshold_(pieceThreshold) {}

void CompactionScheduler::noteActivity() {
  if (idleTimer_) idleTimer_->cancel();
  idleTimer_ = dispatch::Timer::oneShot(
      mainQueue_, static_cast<uint64_t>(idleInterval_ * 1e9),
      dispatch::weakTask(weak_from_this(), [](CompactionScheduler& s) { s.fire(); }));
}

void CompactionScheduler::fire() {
  const auto table = table_.lock();
  if (!table || isRunning_) return;
  if (static_cast<int64_t>(table->pieceCount()) < pieceThreshold_) return;
  isRunning_ = true;
  queue_->async([weakSelf = weak_from_this(), weakTable = table_, &mainQueue = mainQueue_] {
    const auto table = weakTable.lock();
    if (!table) return;
    const auto result = table->compact(kCompactionBudgetSeconds);
    mainQueue.post(dispatch::weakTask(weakSelf, [result](CompactionScheduler& s) { s.finish(result); }));
  });
}

void CompactionScheduler::finish(const storage::PieceTable::CompactionResult& result) {
  lastResult_ = result;
  ++totalRuns_;
  totalPiecesMerged_ += result.piecesBefore - result.piecesAfter;
  isRunning_ = false;
}

}  // namespace quorin::persistence
