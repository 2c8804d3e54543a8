#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "base/ThreadAnnotations.h"

namespace quorin::base {

// A std::mutex that clang's thread-safety analysis knows about: members marked
// GUARDED_BY(lock_) and functions marked REQUIRES(lock_) are checked against
// where the lock is actually held. Take it with MutexLock.
class CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() ACQUIRE() { mutex_.lock(); }
  void unlock() RELEASE() { mutex_.unlock(); }

 private:
  friend class ConditionVariable;
  std::mutex mutex_;
};

// Holds a Mutex for its scope, like std::lock_guard. unlock() and lock() let
// go of it for a stretch (to run a task without the lock), like
// std::unique_lock; the destructor unlocks only if it is held.
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() RELEASE() {
    if (held_) mutex_.unlock();
  }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  void unlock() RELEASE() {
    mutex_.unlock();
    held_ = false;
  }
  void lock() ACQUIRE() {
    mutex_.lock();
    held_ = true;
  }

 private:
  Mutex& mutex_;
  bool held_ = true;
};

// A condition variable waited on with a Mutex the caller holds. A wait may
// also end spuriously, so callers loop on their condition:
//   while (!done_) finished_.wait(lock_);
// which the analysis checks, unlike a predicate lambda (it cannot know that
// the lambda runs under the lock).
class ConditionVariable {
 public:
  void wait(Mutex& mutex) REQUIRES(mutex) {
    Adopted adopted(mutex);
    condition_.wait(adopted.lock);
  }
  // False when the timeout passed.
  template <class Rep, class Period>
  bool waitFor(Mutex& mutex, std::chrono::duration<Rep, Period> timeout) REQUIRES(mutex) {
    Adopted adopted(mutex);
    return condition_.wait_for(adopted.lock, timeout) == std::cv_status::no_timeout;
  }
  // False when the deadline passed.
  template <class Clock, class Duration>
  bool waitUntil(Mutex& mutex, std::chrono::time_point<Clock, Duration> deadline) REQUIRES(mutex) {
    Adopted adopted(mutex);
    return condition_.wait_until(adopted.lock, deadline) == std::cv_status::no_timeout;
  }
  void notifyOne() noexcept { condition_.notify_one(); }
  void notifyAll() noexcept { condition_.notify_all(); }

 private:
  // Lends the caller's held mutex to std::condition_variable for one wait and
  // hands it back still held, even if the wait throws.
  struct Adopted {
    explicit Adopted(Mutex& mutex) : lock(mutex.mutex_, std::adopt_lock) {}
    ~Adopted() { lock.release(); }
    std::unique_lock<std::mutex> lock;
  };

  std::condition_variable condition_;
};

}  // namespace quorin::base
