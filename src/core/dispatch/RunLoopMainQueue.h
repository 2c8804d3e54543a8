#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <thread>

#include "base/Mutex.h"
#include "dispatch/MainQueue.h"

namespace quorin::dispatch {

// A main queue on real time for programs without a GUI event loop (the
// command-line tools): the thread that created it runs it with run(), which
// executes posted tasks in order and delayed ones when due, until stop().
//
// Thread-safety: post, postAfter, isMainThread and stop from any thread; run
// only on the creating thread.
class RunLoopMainQueue final : public MainQueue {
 public:
  RunLoopMainQueue();
  void post(Task task) override;
  void postAfter(uint64_t delayNs, Task task) override;
  bool isMainThread() const override;
  // Runs tasks until stop() is called (from a task or another thread).
  void run();
  void stop();

 private:
  const std::thread::id mainThread_;
  base::Mutex mutex_;
  base::ConditionVariable changed_;
  std::deque<Task> ready_ GUARDED_BY(mutex_);
  std::multimap<uint64_t, Task> delayed_ GUARDED_BY(mutex_);  // by due time (monotonic ns)
  bool stopped_ GUARDED_BY(mutex_) = false;
};

}  // namespace quorin::dispatch
