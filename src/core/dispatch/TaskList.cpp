#include "dispatch/TaskList.h"

namespace quorin::dispatch {

void TaskList::push(Task task) {
  {
    base::MutexLock lock(mutex_);
    tasks_.push_back(std::move(task));
  }
  wake_.notifyOne();
}

std::optional<Task> TaskList::take() {
  base::MutexLock lock(mutex_);
  while (!closed_ && tasks_.empty()) wake_.wait(mutex_);
  if (tasks_.empty()) return std::nullopt;  // closed, and everything queued has been taken
  Task task = std::move(tasks_.front());
  tasks_.pop_front();
  return task;
}

void TaskList::close() {
  {
    base::MutexLock lock(mutex_);
    closed_ = true;
  }
  wake_.notifyAll();
}

}  // namespace quorin::dispatch
