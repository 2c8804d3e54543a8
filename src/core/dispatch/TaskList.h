#pragma once

#include <deque>
#include <optional>

#include "base/Mutex.h"
#include "dispatch/Task.h"

namespace quorin::dispatch {

// The FIFO of tasks behind a queue's worker threads. Workers block in take()
// until there is a task or the list is closed; a closed list still hands out
// what was queued before closing, so queues finish what they were given.
//
// Thread-safety: every member may be called from any thread. The lock is held
// only to move a task in or out, never while one runs.
class TaskList {
 public:
  void push(Task task);
  // The next task, or nothing once the list is closed and empty.
  std::optional<Task> take();
  void close();

 private:
  base::Mutex mutex_;
  base::ConditionVariable wake_;
  std::deque<Task> tasks_ GUARDED_BY(mutex_);
  bool closed_ GUARDED_BY(mutex_) = false;
};

}  // namespace quorin::dispatch
