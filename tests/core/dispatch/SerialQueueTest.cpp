#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <latch>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "dispatch/SerialQueue.h"

namespace quorin::dispatch {
namespace {

TEST(SerialQueue, RunsEveryTaskFromManyProducersKeepingEachProducersOrder) {
  constexpr int kProducers = 4;
  constexpr int kTasksEach = 500;
  std::vector<std::pair<int, int>> ran;  // touched only by the queue's tasks
  {
    SerialQueue queue("test.fifo");
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p) {
      producers.emplace_back([&queue, &ran, p] {
        for (int i = 0; i < kTasksEach; ++i) queue.async([&ran, p, i] { ran.emplace_back(p, i); });
      });
    }
    for (std::thread& producer : producers) producer.join();
  }
  ASSERT_EQ(ran.size(), size_t{kProducers * kTasksEach});
  std::vector<int> expectedNext(kProducers, 0);
  for (auto [producer, index] : ran) EXPECT_EQ(index, expectedNext[producer]++);
}

TEST(SerialQueue, DestructorRunsTasksStillQueued) {
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
}

TEST(SerialQueue, SyncRunsAfterEarlierTasksAndHandsBackResultsAndExceptions) {
  SerialQueue queue("test.sync");
  std::vector<int> log;  // touched only by the queue's tasks
  for (int i = 0; i < 100; ++i) queue.async([&log, i] { log.push_back(i); });
  std::vector<int> seen;
  queue.sync([&] { seen = log; });
  EXPECT_EQ(seen.size(), 100u);

  EXPECT_THROW(queue.sync([] { throw std::runtime_error("failed on the queue"); }), std::runtime_error);
  int after = 0;
  queue.sync([&after] { after = 1; });  // the queue survives a task that threw
  EXPECT_EQ(after, 1);
}

TEST(SerialQueue, RunsTasksOnItsOwnThreadNamedAfterTheLabel) {
  SerialQueue queue("quorin.lineindex");
  SerialQueue other("test.other");
  bool onOwn = false;
  bool onOther = true;
  char name[16] = {};
  queue.sync([&] {
    onOwn = queue.isCurrent();
    onOther = other.isCurrent();
    pthread_getname_np(pthread_self(), name, sizeof(name));
  });
  EXPECT_TRUE(onOwn);
  EXPECT_FALSE(onOther);
  EXPECT_FALSE(queue.isCurrent());
  EXPECT_EQ(std::string(name), "quorin.lineinde");  // the kernel keeps 15 bytes
}

}  // namespace
}  // namespace quorin::dispatch
