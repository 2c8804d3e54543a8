#include "dispatch/Timer.h"

#include "base/Check.h"

namespace quorin::dispatch {

struct Timer::State {
  MainQueue& queue;
  const uint64_t intervalNs;  // 0 for a one-shot
  Task task;                  // empty while it runs and once the timer is inactive
  bool active = true;
};

std::unique_ptr<Timer> Timer::oneShot(MainQueue& queue, uint64_t delayNs, Task task) {
  return start(queue, delayNs, 0, std::move(task));
}

std::unique_ptr<Timer> Timer::repeating(MainQueue& queue, uint64_t intervalNs, Task task) {
  QUORIN_CHECK(intervalNs > 0, "a repeating timer needs a positive interval");
  return start(queue, intervalNs, intervalNs, std::move(task));
}

std::unique_ptr<Timer> Timer::start(MainQueue& queue, uint64_t delayNs, uint64_t intervalNs, Task task) {
  QUORIN_CHECK(queue.isMainThread(), "timers are created on the main thread");
  QUORIN_CHECK(task != nullptr, "a timer needs a task");
  auto state = std::make_shared<State>(State{queue, intervalNs, std::move(task)});
  arm(state, delayNs);
  return std::unique_ptr<Timer>(new Timer(std::move(state)));
}

Timer::Timer(std::shared_ptr<State> state) : state_(std::move(state)) {}

Timer::~Timer() { cancel(); }

void Timer::cancel() {
  QUORIN_CHECK(state_->queue.isMainThread(), "timers are cancelled on the main thread");
  state_->active = false;
  state_->task = nullptr;  // a fire still queued keeps the state alive, not the task's captures
}

bool Timer::isActive() const { return state_->active; }

void Timer::arm(const std::shared_ptr<State>& state, uint64_t delayNs) {
  state->queue.postAfter(delayNs, [state] { fire(state); });
}

void Timer::fire(const std::shared_ptr<State>& state) {
  if (!state->active) return;  // cancelled after this fire was posted
  // Moved out so the task can cancel or destroy its own timer without destroying itself mid-call.
  Task task = std::move(state->task);
  state->task = nullptr;
  if (state->intervalNs == 0) state->active = false;
  task();
  if (!state->active) return;
  state->task = std::move(task);
  arm(state, state->intervalNs);
}

}  // namespace quorin::dispatch
