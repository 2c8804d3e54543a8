#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "dispatch/ManualMainQueue.h"
#include "dispatch/RunLoopMainQueue.h"
#include "dispatch/Timer.h"
#include "dispatch/WeakTask.h"

namespace quorin::dispatch {
namespace {

TEST(MainQueue, VirtualTimeRunsTasksInDueOrderIncludingOnesPostedOnTheWay) {
  ManualMainQueue queue;
  std::vector<int> log;
  auto note = [&](int id) { return [&log, id] { log.push_back(id); }; };
  queue.postAfter(20, note(20));
  queue.postAfter(10, [&] {
    log.push_back(10);
    queue.post(note(11));  // runs at 10, after the other task already due then
    queue.postAfter(5, note(15));
  });
  queue.post(note(1));
  queue.postAfter(10, note(12));
  queue.post(note(2));

  EXPECT_EQ(queue.runPending(), 2u);
  EXPECT_EQ(queue.advance(9), 0u);
  EXPECT_EQ(queue.advance(100), 5u);
  EXPECT_EQ(log, (std::vector<int>{1, 2, 10, 12, 11, 15, 20}));
  EXPECT_EQ(queue.pendingCount(), 0u);
}

TEST(MainQueue, PostAndWaitFromAWorkerRunsOnTheMainThreadBeforeReturning) {
  ManualMainQueue queue;
  bool ranOnMain = false;
  int value = 0, seenByWorker = 0;
  std::thread worker([&] {
    queue.postAndWait([&] { ranOnMain = queue.isMainThread(), value = 2; });
    seenByWorker = value;
  });
  EXPECT_EQ(queue.waitAndRun(std::chrono::seconds(30)), 1u);
  worker.join();
  EXPECT_TRUE(ranOnMain);
  EXPECT_EQ(seenByWorker, 2);
}

TEST(MainQueue, RealTimeWaitsGiveUpAtTheTimeoutAndWakeForDelayedTasks) {
  ManualMainQueue manual;
  EXPECT_EQ(manual.waitAndRun(std::chrono::milliseconds(5)), 0u);

  RunLoopMainQueue loop;
  std::vector<int> ran;
  loop.postAfter(2'000'000, [&] {
    ran.push_back(2);
    loop.stop();
  });
  loop.post([&] { ran.push_back(1); });
  loop.run();  // sleeps until the delayed task is due; returns once it stopped the loop
  EXPECT_EQ(ran, (std::vector<int>{1, 2}));
}

TEST(Timer, OneShotFiresOnceAndRepeatingAtEveryIntervalUntilCancelled) {
  ManualMainQueue queue;
  std::vector<uint64_t> once, repeats;
  auto oneShot = Timer::oneShot(queue, 15, [&] { once.push_back(queue.now()); });
  auto repeating = Timer::repeating(queue, 10, [&] { repeats.push_back(queue.now()); });
  queue.advance(35);
  EXPECT_EQ(once, (std::vector<uint64_t>{15}));
  EXPECT_FALSE(oneShot->isActive());
  EXPECT_EQ(repeats, (std::vector<uint64_t>{10, 20, 30}));

  repeating->cancel();
  queue.advance(100);
  EXPECT_EQ(repeats.size(), 3u);
  EXPECT_EQ(queue.pendingCount(), 0u);  // no re-arming after cancel
}

TEST(Timer, CancelOrDestroyStopsAFireAlreadyInTheQueueEvenFromItsOwnTask) {
  ManualMainQueue queue;
  int fired = 0, selfFired = 0;
  std::unique_ptr<Timer> cancelled, destroyed;
  std::unique_ptr<Timer> self = Timer::repeating(queue, 10, [&] {
    if (++selfFired == 3) self.reset();
  });
  // Posted first, so at time 10 it runs before the fires that are already ready behind it.
  queue.postAfter(10, [&] {
    cancelled->cancel();
    destroyed.reset();
  });
  cancelled = Timer::oneShot(queue, 10, [&fired] { ++fired; });
  destroyed = Timer::repeating(queue, 10, [&fired] { ++fired; });
  queue.advance(100);
  EXPECT_EQ(fired, 0);
  EXPECT_EQ(selfFired, 3);
  EXPECT_EQ(queue.pendingCount(), 0u);
}

TEST(WeakTask, RunsWhileTheOwnerLivesAndSkipsItOnceDestroyed) {
  ManualMainQueue queue;
  int refreshes = 0;
  auto owner = std::make_shared<int>(0);
  std::weak_ptr<int> watch = owner;
  Task task = weakTask(watch, [&refreshes](int&) { ++refreshes; });
  queue.post(task);
  queue.runPending();
  EXPECT_EQ(refreshes, 1);

  queue.post(task);
  owner.reset();
  EXPECT_TRUE(watch.expired());  // a queued task must not keep its owner alive
  queue.runPending();
  EXPECT_EQ(refreshes, 1);
}

}  // namespace
}  // namespace quorin::dispatch
