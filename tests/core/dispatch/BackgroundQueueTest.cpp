#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <latch>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "dispatch/SerialQueue.h"
#include "dispatch/WorkerPool.h"

namespace quorin::dispatch {
namespace {

TEST(SerialQueue, RunsEveryTaskFromManyProducersKeepingEachProducersOrder) {
  constexpr int kProducers = 4, kTasksEach = 500;
  std::vector<std::pair<int, int>> ran;  // touched only by the queue's tasks
  {
    SerialQueue queue("test.fifo");
    std::vector<std::jthread> producers;
    for (int p = 0; p < kProducers; ++p)
      producers.emplace_back([&queue, &ran, p] {
        for (int i = 0; i < kTasksEach; ++i) queue.async([&ran, p, i] { ran.emplace_back(p, i); });
      });
  }  // producers join before the queue is destroyed
  ASSERT_EQ(ran.size(), size_t{kProducers * kTasksEach});
  std::vector<int> expectedNext(kProducers, 0);
  for (auto [producer, index] : ran) EXPECT_EQ(index, expectedNext[producer]++);
}

TEST(SerialQueue, ALastReferenceDroppedByItsOwnTaskLetsItFinishWhatIsQueued) {
  // An index building on its document's queue holds the queue; when the index's last reference goes
  // with a pass, the queue is destroyed on its own thread.
  auto queue = std::make_shared<SerialQueue>("test.self");
  std::promise<void> gate;
  std::promise<void> ranAfter;
  queue->async([opened = gate.get_future().share()] { opened.wait(); });
  queue->async([held = queue]() mutable { held.reset(); });
  queue->async([&ranAfter] { ranAfter.set_value(); });
  queue.reset();  // only the second task holds it now
  gate.set_value();
  EXPECT_EQ(ranAfter.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
}

TEST(SerialQueue, DestructorsOfItAndOfAWorkerPoolRunTasksStillQueued) {
  std::latch release(1);
  std::atomic<int> ran = 0;
  // The sleep only makes it likely that the destructor starts while tasks wait behind the blocked
  // one; the assertion holds however the threads are scheduled.
  std::jthread releaser([&release] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    release.count_down();
  });
  {
    SerialQueue queue("test.drain");
    queue.async([&release] { release.wait(); });
    for (int i = 0; i < 100; ++i) queue.async([&ran] { ++ran; });
  }
  EXPECT_EQ(ran.load(), 100);
  {
    WorkerPool pool(2);
    for (int i = 0; i < 1000; ++i) pool.async([&ran] { ++ran; });
  }
  EXPECT_EQ(ran.load(), 1100);
}

TEST(SerialQueue, SyncRunsOnTheQueueAfterEarlierTasksAndRethrows) {
  SerialQueue queue("test.sync");
  std::vector<int> log;  // touched only by the queue's tasks
  for (int i = 0; i < 100; ++i) queue.async([&log, i] { log.push_back(i); });
  size_t seen = 0;
  queue.sync([&] { seen = queue.isCurrent() ? log.size() : 0; });
  EXPECT_EQ(seen, 100u);

  EXPECT_THROW(queue.sync([] { throw std::runtime_error("failed on the queue"); }), std::runtime_error);
  EXPECT_NO_THROW(queue.sync([] {}));  // the queue survives a task that threw
}

// How many times parallelFor called body with each index.
std::vector<int> callsPerIndex(WorkerPool& pool, size_t count) {
  std::vector<std::atomic<int>> calls(count);
  pool.parallelFor(count, [&calls](size_t i) { ++calls[i]; });
  return std::vector<int>(calls.begin(), calls.end());
}

TEST(WorkerPool, ParallelForCompletesOnASingleThreadPoolAndWhenNested) {
  for (size_t threads : {1, 2}) {
    WorkerPool pool(threads);
    constexpr size_t kOuter = 8, kInner = 100;
    std::vector<std::atomic<int>> calls(kOuter * kInner);
    // Every worker ends up in an outer body waiting on an inner loop; only the callers' own share
    // of the work keeps that from deadlocking.
    pool.parallelFor(kOuter, [&](size_t outer) {
      pool.parallelFor(kInner, [&](size_t inner) { ++calls[outer * kInner + inner]; });
    });
    EXPECT_EQ(std::vector<int>(calls.begin(), calls.end()), std::vector<int>(calls.size(), 1));
  }
}

TEST(WorkerPool, ParallelForCallsEachIndexOnceAndRethrowsOnlyAfterStartedBodiesFinished) {
  WorkerPool pool(4);
  std::atomic<int> inFlight = 0;
  auto body = [&inFlight](size_t i) {
    ++inFlight;
    std::this_thread::sleep_for(std::chrono::milliseconds(i % 16 == 3 ? 0 : 1));  // widens the race
    --inFlight;
    if (i % 16 == 3) throw std::runtime_error("failed");
  };
  EXPECT_THROW(pool.parallelFor(64, body), std::runtime_error);
  EXPECT_EQ(inFlight.load(), 0);
  for (size_t count : {0, 1, 2, 10'000})  // each index exactly once, and the pool survived the throw
    EXPECT_EQ(callsPerIndex(pool, count), std::vector<int>(count, 1)) << "count " << count;
}

}  // namespace
}  // namespace quorin::dispatch
