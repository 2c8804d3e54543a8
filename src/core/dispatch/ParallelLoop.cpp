#include "dispatch/ParallelLoop.h"

namespace quorin::dispatch {

void ParallelLoop::work() noexcept {
  for (;;) {
    size_t index = next_.fetch_add(1, std::memory_order_relaxed);
    if (index >= count_) return;
    size_t finished = 1;
    try {
      (*body_)(index);
    } catch (...) {
      finished += fail(std::current_exception());
    }
    markFinished(finished);
  }
}

void ParallelLoop::wait() {
  std::exception_ptr error;
  {
    base::MutexLock lock(mutex_);
    while (finished_.load(std::memory_order_acquire) != count_) allFinished_.wait(mutex_);
    error = error_;
  }
  if (error) std::rethrow_exception(error);
}

size_t ParallelLoop::fail(std::exception_ptr error) {
  {
    base::MutexLock lock(mutex_);
    if (!error_) error_ = std::move(error);
  }
  // Claiming the rest in one step stops the other participants at their next claim.
  size_t firstUnclaimed = next_.exchange(count_, std::memory_order_relaxed);
  return firstUnclaimed < count_ ? count_ - firstUnclaimed : 0;
}

void ParallelLoop::markFinished(size_t indices) {
  // Release publishes this body's effects to the caller, which reads finished_ with acquire.
  if (finished_.fetch_add(indices, std::memory_order_acq_rel) + indices != count_) return;
  // Taking the lock before notifying keeps the wake-up from slipping in between the caller's check
  // and its wait.
  base::MutexLock lock(mutex_);
  allFinished_.notifyAll();
}

}  // namespace quorin::dispatch
