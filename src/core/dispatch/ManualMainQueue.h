#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <thread>

#include "base/Mutex.h"
#include "dispatch/MainQueue.h"

namespace quorin::dispatch {

// A main queue for tests: nothing runs until the test pumps it, and time is virtual (it starts at 0
// and moves only in advance()), so timer behaviour is checked exactly and without sleeping.
//
// Thread-safety: post, postAfter, isMainThread, now and pendingCount from any thread; the pumping
// members only from the constructing thread, which plays the main thread.
class ManualMainQueue final : public MainQueue {
 public:
  ManualMainQueue();

  void post(Task task) override;
  // Due at now() + delayNs; a task due now counts as ready.
  void postAfter(uint64_t delayNs, Task task) override;
  bool isMainThread() const override;

  // Runs ready tasks, including the ones they post, until none is left. Returns how many ran.
  size_t runPending();
  // Runs what is ready, then moves time forward to each due time in turn up to now() + ns, running
  // the tasks due then (in due order, ties in posting order) and whatever they post, as a real loop
  // would. Returns how many tasks ran.
  size_t advance(uint64_t ns);
  uint64_t now() const;
  // Ready plus delayed tasks.
  size_t pendingCount() const;
  // For tests where another thread posts: waits up to timeout of real time for a ready task, then
  // runs pending. Returns how many tasks ran (0 after a timeout).
  size_t waitAndRun(std::chrono::milliseconds timeout);

 private:
  void promoteDueLocked() REQUIRES(mutex_);
  Task takeReady();

  const std::thread::id mainThread_;
  mutable base::Mutex mutex_;
  base::ConditionVariable posted_;
  std::deque<Task> ready_ GUARDED_BY(mutex_);
  std::multimap<uint64_t, Task> delayed_ GUARDED_BY(mutex_);  // by due time, ties in posting order
  uint64_t now_ GUARDED_BY(mutex_) = 0;
};

}  // namespace quorin::dispatch
