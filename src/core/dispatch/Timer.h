#pragma once

#include <cstdint>
#include <memory>

#include "dispatch/MainQueue.h"
#include "dispatch/Task.h"

namespace quorin::dispatch {

// Runs a task on a main queue after a delay, once or repeatedly. Once cancel() or the destructor
// returned the task never runs again, even when a fire is already sitting in the queue, and its
// captures are released; so an owner holding the timer may capture `this` in the task.
//
// Thread-safety: create, cancel and destroy on the main thread, where the task runs too; the
// state is then only ever touched there and needs no lock. The queue must outlive the timer.
// The task may cancel or destroy its own timer.
class Timer {
 public:
  static std::unique_ptr<Timer> oneShot(MainQueue& queue, uint64_t delayNs, Task task);
  // The next fire is due intervalNs after the previous one finished, so a slow task or a busy main
  // thread spaces fires out rather than bunching them up. intervalNs must be positive.
  static std::unique_ptr<Timer> repeating(MainQueue& queue, uint64_t intervalNs, Task task);
  ~Timer();
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  void cancel();
  // False once a one-shot fired (already while its task runs) or after cancel().
  bool isActive() const;

 private:
  struct State;
  static std::unique_ptr<Timer> start(MainQueue& queue, uint64_t delayNs, uint64_t intervalNs, Task task);
  static void arm(const std::shared_ptr<State>& state, uint64_t delayNs);
  static void fire(const std::shared_ptr<State>& state);

  explicit Timer(std::shared_ptr<State> state);

  // Shared with the fires posted to the queue, which outlive the timer when it is cancelled.
  std::shared_ptr<State> state_;
};

}  // namespace quorin::dispatch
