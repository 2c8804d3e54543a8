#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "dispatch/ManualMainQueue.h"
#include "dispatch/Timer.h"

namespace quorin::dispatch {
namespace {

TEST(Timer, OneShotFiresOnceWhenDue) {
  ManualMainQueue queue;
  int fired = 0;
  auto timer = Timer::oneShot(queue, 100, [&fired] { ++fired; });
  queue.advance(99);
  EXPECT_EQ(fired, 0);
  EXPECT_TRUE(timer->isActive());
  queue.advance(1);
  EXPECT_EQ(fired, 1);
  EXPECT_FALSE(timer->isActive());
  queue.advance(1000);
  EXPECT_EQ(fired, 1);
}

TEST(Timer, RepeatingFiresAtEveryIntervalUntilCancelled) {
  ManualMainQueue queue;
  std::vector<uint64_t> fireTimes;
  auto timer = Timer::repeating(queue, 10, [&] { fireTimes.push_back(queue.now()); });
  queue.advance(35);
  EXPECT_EQ(fireTimes, (std::vector<uint64_t>{10, 20, 30}));
  EXPECT_TRUE(timer->isActive());

  timer->cancel();
  EXPECT_FALSE(timer->isActive());
  queue.advance(100);
  EXPECT_EQ(fireTimes.size(), 3u);
  EXPECT_EQ(queue.pendingCount(), 0u);  // no re-arming after cancel
}

TEST(Timer, CancelOrDestroyStopsAFireAlreadyInTheQueue) {
  ManualMainQueue queue;
  int fired = 0;
  std::unique_ptr<Timer> cancelled;
  std::unique_ptr<Timer> destroyed;
  // Posted first, so at time 10 it runs before the fires that are already ready behind it.
  queue.postAfter(10, [&] {
    cancelled->cancel();
    destroyed.reset();
  });
  cancelled = Timer::oneShot(queue, 10, [&fired] { ++fired; });
  destroyed = Timer::repeating(queue, 10, [&fired] { ++fired; });
  queue.advance(100);
  EXPECT_EQ(fired, 0);
}

TEST(Timer, TaskMayDestroyItsOwnTimer) {
  ManualMainQueue queue;
  int fired = 0;
  std::unique_ptr<Timer> timer;
  timer = Timer::repeating(queue, 10, [&] {
    if (++fired == 3) timer.reset();
  });
  queue.advance(100);
  EXPECT_EQ(fired, 3);
  EXPECT_EQ(queue.pendingCount(), 0u);
}

}  // namespace
}  // namespace quorin::dispatch
