#pragma once

#include <cstdint>
#include <functional>

namespace quorin::cli {

// Exit status after a run that Ctrl+C (SIGINT) or SIGTERM stopped cleanly:
// 128 + SIGINT, what a shell reports for a program the signal killed, so
// scripts see the same status whether the work was cut short by us or by
// the signal's default action.
inline constexpr int kExitInterrupted = 130;

// Ctrl+C for the command line. The process does not die on the signal:
// a dedicated thread receives it and cancels the work in progress through
// the cancellation the core jobs already check (search cancellation, job
// tokens, the compare job's flag, the line index's cancel), so that scratch
// files are removed and nothing is left half-written. A second signal while
// the first is being honoured ends the process at once.
//
// Thread-safety: every function may be called from any thread.

// Called once by main() before any other thread exists: blocks SIGINT and
// SIGTERM in every thread and starts the thread that waits for them.
void installInterruptHandling();

// Whether an interrupt has arrived.
bool interruptRequested();

// Acts as if Ctrl+C had been pressed: marks the run interrupted and calls
// the registered cancel functions.
void requestInterrupt();

// Registers how to stop the work now running, for as long as the guard
// lives. If an interrupt already arrived, `cancel` runs at once. `cancel`
// runs on the signal thread and must be quick and thread-safe.
class InterruptGuard {
 public:
  explicit InterruptGuard(std::function<void()> cancel);
  ~InterruptGuard();
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;

 private:
  uint64_t id_;
};

}  // namespace quorin::cli
