#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "base/Mutex.h"

namespace quorin::base {
namespace {

TEST(ConditionVariable, TimedWaitsReportTheTimeoutKeepTheLockAndWakeOnNotify) {
  Mutex mutex;
  ConditionVariable changed;
  bool ready = false;
  MutexLock lock(mutex);
  EXPECT_FALSE(changed.waitFor(mutex, std::chrono::milliseconds(1)));
  EXPECT_FALSE(changed.waitUntil(mutex, std::chrono::steady_clock::now()));

  // Still held after the timeouts, so the notifier can only get in while the
  // waiter waits.
  std::thread notifier([&] {
    MutexLock guard(mutex);
    ready = true;
    changed.notifyAll();
  });
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  bool notified = true;
  while (!ready && notified) notified = changed.waitUntil(mutex, deadline);
  lock.unlock();  // the destructor must not unlock again
  notifier.join();
  EXPECT_TRUE(notified);
  EXPECT_TRUE(ready);
}

}  // namespace
}  // namespace quorin::base
