#include "dispatch/TaskList.h"

namespace quorin::dispatch {

void TaskList::push(Task task) {
  {
    std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
  }
  wake_.notify_one();
}

std::optional<Task> TaskList::take() {
  std::unique_lock lock(mutex_);
  wake_.wait(lock, [this] { return closed_ || !tasks_.empty(); });
  if (tasks_.empty()) return std::nullopt;  // closed, and everything queued has been taken
  Task task = std::move(tasks_.front());
  tasks_.pop_front();
  return task;
}

void TaskList::close() {
  {
    std::lock_guard lock(mutex_);
    closed_ = true;
  }
  wake_.notify_all();
}

}  // namespace quorin::dispatch
