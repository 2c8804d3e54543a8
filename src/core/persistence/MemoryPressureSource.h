#pragma once

#include <functional>
#include <memory>
#include <thread>

#include "base/UniqueFd.h"
#include "dispatch/MainQueue.h"

namespace quorin::persistence {

enum class MemoryPressureLevel { warning, critical };

// Tells the main queue when the system runs short of memory.
//
// Linux reports memory stalls through pressure-stall information: a trigger
// written to /proc/pressure/memory wakes a poll() when tasks were stalled on
// memory for more than a threshold within a window. Warning: some task
// stalled 150 ms within 2 s; critical: all tasks stalled 150 ms within 2 s
// (2 s windows are what unprivileged processes may ask for). Where PSI is
// missing (old kernels, some containers) a fallback reads /proc/meminfo every
// 2 s: warning below 10% of memory available, critical below 5%, reported
// when the level is entered, not again while it lasts.
//
// Lifetime: the watching thread stops, and no handler call runs, once the
// object is destroyed. Create and destroy on the main thread; the handler
// runs there.
class MemoryPressureSource {
 public:
  using Handler = std::function<void(MemoryPressureLevel)>;

  static std::unique_ptr<MemoryPressureSource> start(dispatch::MainQueue& mainQueue, Handler handler);
  ~MemoryPressureSource();
  MemoryPressureSource(const MemoryPressureSource&) = delete;
  MemoryPressureSource& operator=(const MemoryPressureSource&) = delete;

  // Whether the kernel's pressure triggers are in use (else the fallback is).
  bool usesPressureStallInformation() const { return usesPsi_; }

 private:
  struct Shared;
  MemoryPressureSource() = default;
  void watchTriggers(int warningFd, int criticalFd);
  void pollMeminfo();

  std::shared_ptr<Shared> shared_;
  base::UniqueFd stopFd_;
  bool usesPsi_ = false;
  std::thread thread_;
};

// A place on the process's one pressure source: every open document's undo
// history listens, but one watching thread (and one pair of triggers) per
// main queue serves them all. The source starts with the first subscription
// and stops with the last. Create and destroy on the main thread; the handler
// runs there and never after the subscription is gone.
class MemoryPressureSubscription {
 public:
  static std::unique_ptr<MemoryPressureSubscription> subscribe(dispatch::MainQueue& mainQueue,
                                                               MemoryPressureSource::Handler handler);
  ~MemoryPressureSubscription();
  MemoryPressureSubscription(const MemoryPressureSubscription&) = delete;
  MemoryPressureSubscription& operator=(const MemoryPressureSubscription&) = delete;

 private:
  MemoryPressureSubscription(dispatch::MainQueue& queue, int token) : queue_(queue), token_(token) {}
  dispatch::MainQueue& queue_;
  const int token_;
};

}  // namespace quorin::persistence
