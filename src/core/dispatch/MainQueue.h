#pragma once

#include <cstdint>

#include "dispatch/Task.h"

namespace quorin::dispatch {

// The UI thread's queue. The application implements it on its event loop and tests use
// ManualMainQueue; the core posts results here so views are only touched from their own thread.
//
// Thread-safety: post, postAfter and isMainThread from any thread.
// Lifetime: tasks still pending when the queue is destroyed are dropped without running.
class MainQueue {
 public:
  virtual ~MainQueue() = default;
  MainQueue(const MainQueue&) = delete;
  MainQueue& operator=(const MainQueue&) = delete;

  // Tasks run on the main thread in the order they were posted.
  virtual void post(Task task) = 0;
  // Runs task on the main thread no sooner than delayNs after this call.
  virtual void postAfter(uint64_t delayNs, Task task) = 0;
  virtual bool isMainThread() const = 0;

  // Runs task on the main thread and returns once it finished, rethrowing what it threw; runs it
  // inline when already there. It blocks the caller, so the main thread must not be waiting for
  // the caller (a sync onto the caller's queue, a join) or neither moves again.
  void postAndWait(Task task);

 protected:
  MainQueue() = default;
};

}  // namespace quorin::dispatch
