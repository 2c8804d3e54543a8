#include "dispatch/Completion.h"

namespace quorin::dispatch {

void Completion::run(const Task& task) noexcept {
  std::exception_ptr error;
  try {
    task();
  } catch (...) {
    error = std::current_exception();
  }
  base::MutexLock lock(mutex_);
  error_ = std::move(error);
  done_ = true;
  finished_.notifyOne();  // still under the lock: the waiter may destroy *this right after
}

void Completion::wait() {
  std::exception_ptr error;
  {
    base::MutexLock lock(mutex_);
    while (!done_) finished_.wait(mutex_);
    error = std::move(error_);
  }
  if (error) std::rethrow_exception(error);
}

}  // namespace quorin::dispatch
