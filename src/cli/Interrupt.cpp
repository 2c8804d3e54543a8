#include "Interrupt.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <thread>

#include "base/Mutex.h"

namespace quorin::cli {
namespace {

struct Registry {
  base::Mutex mutex;
  std::map<uint64_t, std::function<void()>> cancels GUARDED_BY(mutex);
  uint64_t nextId GUARDED_BY(mutex) = 1;
};

Registry& registry() {
  static Registry* instance = new Registry;  // never destroyed: the signal thread outlives main()
  return *instance;
}

std::atomic<bool> interrupted{false};

sigset_t handledSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  return set;
}

}  // namespace

void installInterruptHandling() {
  const sigset_t set = handledSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  std::thread([set] {
    for (;;) {
      int signal = 0;
      if (sigwait(&set, &signal) != 0) continue;
      if (interruptRequested()) _exit(kExitInterrupted);  // asked twice: the user wants out now
      requestInterrupt();
    }
  }).detach();
}

bool interruptRequested() { return interrupted.load(std::memory_order_acquire); }

void requestInterrupt() {
  interrupted.store(true, std::memory_order_release);
  // The cancels run under the lock on purpose: once a guard's destructor has
  // returned, its cancel can no longer be running on an object that is gone.
  // They only set flags, so the lock is still held briefly.
  Registry& r = registry();
  base::MutexLock guard(r.mutex);
  for (auto& [id, cancel] : r.cancels) cancel();
}

InterruptGuard::InterruptGuard(std::function<void()> cancel) {
  Registry& r = registry();
  base::MutexLock guard(r.mutex);
  id_ = r.nextId++;
  if (interruptRequested()) cancel();
  r.cancels.emplace(id_, std::move(cancel));
}

InterruptGuard::~InterruptGuard() {
  Registry& r = registry();
  base::MutexLock guard(r.mutex);
  r.cancels.erase(id_);
}

}  // namespace quorin::cli
