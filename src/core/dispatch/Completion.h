#pragma once

#include <condition_variable>
#include <exception>
#include <mutex>

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
  std::mutex mutex_;
  std::condition_variable finished_;
  bool done_ = false;         // guarded by mutex_
  std::exception_ptr error_;  // guarded by mutex_
};

}  // namespace quorin::dispatch
