#include "dispatch/RunLoopMainQueue.h"

#include <chrono>

#include "dispatch/Clock.h"

namespace quorin::dispatch {

RunLoopMainQueue::RunLoopMainQueue() : mainThread_(std::this_thread::get_id()) {}

void RunLoopMainQueue::post(Task task) {
  base::MutexLock guard(mutex_);
  ready_.push_back(std::move(task));
  changed_.notifyAll();
}

void RunLoopMainQueue::postAfter(uint64_t delayNs, Task task) {
  base::MutexLock guard(mutex_);
  delayed_.emplace(monotonicNanos() + delayNs, std::move(task));
  changed_.notifyAll();
}

bool RunLoopMainQueue::isMainThread() const { return std::this_thread::get_id() == mainThread_; }

void RunLoopMainQueue::stop() {
  base::MutexLock guard(mutex_);
  stopped_ = true;
  changed_.notifyAll();
}

void RunLoopMainQueue::run() {
  base::MutexLock guard(mutex_);
  while (!stopped_) {
    const uint64_t now = monotonicNanos();
    while (!delayed_.empty() && delayed_.begin()->first <= now) {
      ready_.push_back(std::move(delayed_.begin()->second));
      delayed_.erase(delayed_.begin());
    }
    if (!ready_.empty()) {
      Task task = std::move(ready_.front());
      ready_.pop_front();
      guard.unlock();
      task();
      guard.lock();
      continue;
    }
    if (delayed_.empty()) {
      changed_.wait(mutex_);
    } else {
      changed_.waitFor(mutex_, std::chrono::nanoseconds(delayed_.begin()->first - now));
    }
  }
}

}  // namespace quorin::dispatch
