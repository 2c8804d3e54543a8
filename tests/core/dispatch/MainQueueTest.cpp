#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "dispatch/ManualMainQueue.h"

namespace quorin::dispatch {
namespace {

Task record(std::vector<std::string>& log, std::string entry) {
  return [&log, entry] { log.push_back(entry); };
}

TEST(MainQueue, RunsPostedTasksInOrderAndDelayedOnesWhenVirtualTimeReachesThem) {
  ManualMainQueue queue;
  std::vector<std::string> log;
  queue.postAfter(20, record(log, "at 20"));
  queue.postAfter(10, record(log, "at 10 first"));
  queue.post(record(log, "a"));
  queue.postAfter(10, record(log, "at 10 second"));
  queue.post(record(log, "b"));
  EXPECT_EQ(queue.pendingCount(), 5u);

  EXPECT_EQ(queue.runPending(), 2u);
  EXPECT_EQ(log, (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(queue.advance(9), 0u);
  EXPECT_EQ(queue.advance(1), 2u);
  EXPECT_EQ(queue.advance(100), 1u);
  EXPECT_EQ(log, (std::vector<std::string>{"a", "b", "at 10 first", "at 10 second", "at 20"}));
  EXPECT_EQ(queue.now(), 110u);
  EXPECT_EQ(queue.pendingCount(), 0u);
}

TEST(MainQueue, AdvanceRunsWhatDelayedTasksPostAtTheirOwnTimes) {
  ManualMainQueue queue;
  std::vector<uint64_t> runTimes;
  queue.postAfter(10, [&] {
    runTimes.push_back(queue.now());
    queue.post([&] { runTimes.push_back(queue.now()); });
    queue.postAfter(5, [&] { runTimes.push_back(queue.now()); });
  });
  EXPECT_EQ(queue.advance(100), 3u);
  EXPECT_EQ(runTimes, (std::vector<uint64_t>{10, 10, 15}));
}

TEST(MainQueue, PostAndWaitRunsOnTheMainThreadAndReturnsAfterIt) {
  ManualMainQueue queue;
  int value = 0;
  queue.postAndWait([&value] { value = 1; });  // inline on the main thread, nothing to pump
  EXPECT_EQ(value, 1);

  bool ranOnMain = false;
  int seenByWorker = 0;
  std::thread worker([&] {
    queue.postAndWait([&] {
      ranOnMain = queue.isMainThread();
      value = 2;
    });
    seenByWorker = value;
  });
  EXPECT_EQ(queue.waitAndRun(std::chrono::seconds(30)), 1u);
  worker.join();
  EXPECT_TRUE(ranOnMain);
  EXPECT_EQ(seenByWorker, 2);
}

}  // namespace
}  // namespace quorin::dispatch
