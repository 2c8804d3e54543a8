#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "dispatch/WorkerPool.h"

namespace quorin::dispatch {
namespace {

// How many times parallelFor called body with each index.
std::vector<int> callsPerIndex(WorkerPool& pool, size_t count) {
  std::vector<std::atomic<int>> calls(count);
  pool.parallelFor(count, [&calls](size_t i) { ++calls[i]; });
  std::vector<int> result;
  for (const std::atomic<int>& c : calls) result.push_back(c.load());
  return result;
}

TEST(WorkerPool, ParallelForCallsEachIndexExactlyOnce) {
  WorkerPool pool(4);
  for (size_t count : {size_t{0}, size_t{1}, size_t{2}, size_t{10'000}})
    EXPECT_EQ(callsPerIndex(pool, count), std::vector<int>(count, 1)) << "count " << count;
}

TEST(WorkerPool, ParallelForCompletesOnASingleThreadPoolAndWhenNested) {
  for (size_t threads : {size_t{1}, size_t{2}}) {
    WorkerPool pool(threads);
    constexpr size_t kOuter = 8;
    constexpr size_t kInner = 100;
    std::vector<std::atomic<int>> calls(kOuter * kInner);
    // Every worker ends up in an outer body waiting on an inner loop; only the callers' own share
    // of the work keeps that from deadlocking.
    pool.parallelFor(kOuter, [&](size_t outer) {
      pool.parallelFor(kInner, [&](size_t inner) { ++calls[outer * kInner + inner]; });
    });
    for (size_t i = 0; i < calls.size(); ++i) ASSERT_EQ(calls[i].load(), 1) << "index " << i;
  }
}

TEST(WorkerPool, ParallelForRethrowsOnlyAfterStartedBodiesFinished) {
  WorkerPool pool(4);
  std::atomic<int> inFlight = 0;
  auto body = [&inFlight](size_t i) {
    ++inFlight;
    if (i % 16 == 3) {
      --inFlight;
      throw std::runtime_error("index " + std::to_string(i));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));  // widens the window for a race
    --inFlight;
  };
  EXPECT_THROW(pool.parallelFor(64, body), std::runtime_error);
  EXPECT_EQ(inFlight.load(), 0);
  EXPECT_EQ(callsPerIndex(pool, 100), std::vector<int>(100, 1));  // the pool is still usable
}

TEST(WorkerPool, DestructorRunsQueuedTasks) {
  std::atomic<int> ran = 0;
  {
    WorkerPool pool(2);
    for (int i = 0; i < 1000; ++i) pool.async([&ran] { ++ran; });
  }
  EXPECT_EQ(ran.load(), 1000);
}

}  // namespace
}  // namespace quorin::dispatch
