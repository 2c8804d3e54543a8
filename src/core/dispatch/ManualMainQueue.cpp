#include "dispatch/ManualMainQueue.h"

#include <limits>

#include "base/Check.h"

namespace quorin::dispatch {

namespace {

// "Forever" must stay in the future rather than wrap around to the past.
uint64_t saturatingAdd(uint64_t a, uint64_t b) {
  return b > std::numeric_limits<uint64_t>::max() - a ? std::numeric_limits<uint64_t>::max() : a + b;
}

}  // namespace

ManualMainQueue::ManualMainQueue() : mainThread_(std::this_thread::get_id()) {}

void ManualMainQueue::post(Task task) {
  QUORIN_CHECK(task != nullptr, "an empty task was posted to the main queue");
  // Notified under the lock: once the main thread sees the task it may run it
  // and destroy the queue, so the poster must be done with the queue by then.
  base::MutexLock lock(mutex_);
  ready_.push_back(std::move(task));
  posted_.notifyOne();
}

void ManualMainQueue::postAfter(uint64_t delayNs, Task task) {
  QUORIN_CHECK(task != nullptr, "an empty task was posted to the main queue");
  base::MutexLock lock(mutex_);
  delayed_.emplace(saturatingAdd(now_, delayNs), std::move(task));  // lands after equal due times
  posted_.notifyOne();                                              // it may be due already
}

bool ManualMainQueue::isMainThread() const { return std::this_thread::get_id() == mainThread_; }

size_t ManualMainQueue::runPending() {
  QUORIN_CHECK(isMainThread(), "only the main thread may run the main queue");
  size_t ran = 0;
  while (Task task = takeReady()) {
    task();
    ++ran;
  }
  return ran;
}

size_t ManualMainQueue::advance(uint64_t ns) {
  size_t ran = runPending();
  const uint64_t target = saturatingAdd(now(), ns);
  for (;;) {
    {
      base::MutexLock lock(mutex_);
      if (delayed_.empty() || delayed_.begin()->first > target) {
        now_ = target;
        return ran;
      }
      // runPending left nothing due at now_, so the earliest due time is in the future.
      now_ = delayed_.begin()->first;
    }
    ran += runPending();
  }
}

uint64_t ManualMainQueue::now() const {
  base::MutexLock lock(mutex_);
  return now_;
}

size_t ManualMainQueue::pendingCount() const {
  base::MutexLock lock(mutex_);
  return ready_.size() + delayed_.size();
}

size_t ManualMainQueue::waitAndRun(std::chrono::milliseconds timeout) {
  QUORIN_CHECK(isMainThread(), "only the main thread may run the main queue");
  {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    base::MutexLock lock(mutex_);
    promoteDueLocked();
    while (ready_.empty() && posted_.waitUntil(mutex_, deadline)) promoteDueLocked();
  }
  return runPending();
}

void ManualMainQueue::promoteDueLocked() {
  while (!delayed_.empty() && delayed_.begin()->first <= now_) {
    ready_.push_back(std::move(delayed_.begin()->second));
    delayed_.erase(delayed_.begin());
  }
}

Task ManualMainQueue::takeReady() {
  base::MutexLock lock(mutex_);
  promoteDueLocked();
  if (ready_.empty()) return {};
  Task task = std::move(ready_.front());
  ready_.pop_front();
  return task;
}

}  // namespace quorin::dispatch
