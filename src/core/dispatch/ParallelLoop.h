#pragma once

#include <atomic>
#include <cstddef>
#include <exception>
#include <functional>

#include "base/Mutex.h"

namespace quorin::dispatch {

// The state one parallelFor shares between its caller and its helper tasks. Helpers hold it by
// shared_ptr because one may be dequeued after the loop is over; body is touched only after
// claiming an index, and the caller waits for every claimed index, so body outlives all its uses.
class ParallelLoop {
 public:
  ParallelLoop(size_t count, const std::function<void(size_t)>& body) : count_(count), body_(&body) {}
  ParallelLoop(const ParallelLoop&) = delete;
  ParallelLoop& operator=(const ParallelLoop&) = delete;

  // Claims and runs indices until none is left. Any thread, any number of them at once.
  void work() noexcept;
  // Blocks until every index ran or was skipped, then rethrows the first failure.
  void wait();

 private:
  // Records a failure and gives up the indices nobody claimed yet; returns how many it gave up.
  size_t fail(std::exception_ptr error);
  void markFinished(size_t indices);

  const size_t count_;
  const std::function<void(size_t)>* const body_;
  std::atomic<size_t> next_{0};      // next index to claim; may overshoot count_
  std::atomic<size_t> finished_{0};  // indices run or skipped; the loop is over at count_
  base::Mutex mutex_;
  base::ConditionVariable allFinished_;
  std::exception_ptr error_ GUARDED_BY(mutex_);
};

}  // namespace quorin::dispatch
