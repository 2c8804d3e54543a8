#include "dispatch/Completion.h"

namespace quorin::dispatch {

void Completion::run(const Task& task) noexcept {
  std::exception_ptr error;
  try {
    task();
  } catch (...) {
    error = std::current_exception();
  }
  std::lock_guard lock(mutex_);
  error_ = std::move(error);
  done_ = true;
  finished_.notify_one();  // still under the lock: the waiter may destroy *this right after
}

void Completion::wait() {
  std::exception_ptr error;
  {
    std::unique_lock lock(mutex_);
    finished_.wait(lock, [this] { return done_; });
    error = std::move(error_);
  }
  if (error) std::rethrow_exception(error);
}

}  // namespace quorin::dispatch
