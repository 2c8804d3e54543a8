#pragma once

#include <exception>

#include "base/Mutex.h"
#include "dispatch/Task.h"

namespace quorin::dispatch {

// Lets a thread wait for a task it handed to another thread, and get back what the task threw.
// The waiter owns it, usually on its stack, so nothing may touch it once wait() returned; run()
// signals under the lock to make that safe.
class Completion {
 public:
  Completion() = default;
  Completion(const Completion&) = delete;
  Completion& operator=(const Completion&) = delete;

  // Called once, on the thread executing the task: runs it and wakes the waiter.
  void run(const Task& task) noexcept;
  // Blocks until run() finished, then rethrows the task's exception if it threw.
  void wait();

 private:
  base::Mutex mutex_;
  base::ConditionVariable finished_;
  bool done_ GUARDED_BY(mutex_) = false;
  std::exception_ptr error_ GUARDED_BY(mutex_);
};

}  // namespace quorin::dispatch
