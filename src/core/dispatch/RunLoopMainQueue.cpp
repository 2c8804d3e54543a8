#include "dispatch/RunLoopMainQueue.h"

#include <chrono>

#include "dispatch/Clock.h"

namespace quorin::dispatch {

RunLoopMainQueue::RunLoopMainQueue() : mainThread_(std::this_thread::get_id()) {}

void RunLoopMainQueue::post(Task task) {
  std::scoped_lock guard(mutex_);
  ready_.push_back(std::move(task));
  changed_.notify_all();
}

void RunLoopMainQueue::postAfter(uint64_t delayNs, Task task) {
  std::scoped_lock guard(mutex_);
  delayed_.emplace(monotonicNanos() + delayNs, std::move(task));
  changed_.notify_all();
}

bool RunLoopMainQueue::isMainThread() const { return std::this_thread::get_id() == mainThread_; }

void RunLoopMainQueue::stop() {
  std::scoped_lock guard(mutex_);
  stopped_ = true;
  changed_.notify_all();
}

void RunLoopMainQueue::run() {
  std::unique_lock guard(mutex_);
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
      changed_.wait(guard);
    } else {
      changed_.wait_for(guard, std::chrono::nanoseconds(delayed_.begin()->first - now));
    }
  }
}

}  // namespace quorin::dispatch
