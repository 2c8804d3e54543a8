#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QTest>
#include <QThread>
#include <atomic>
#include <thread>
#include <vector>

#include "app/QtMainQueue.h"
#include "dispatch/Clock.h"

namespace quorin::app {
namespace {

bool onGuiThread() { return QThread::currentThread() == QCoreApplication::instance()->thread(); }

TEST(AppQtMainQueueTest, TasksFromAWorkerRunOnTheGuiThreadInOrderAndDelayedOnesNeverEarly) {
  QtMainQueue queue;
  constexpr uint64_t kDelayNs = 30'000'000;
  const uint64_t start = dispatch::monotonicNanos();
  uint64_t delayedRanAt = 0;
  std::vector<int> order;
  std::atomic<bool> allOnGuiThread = true, workerSawMainThread = true, waited = false, done = false;
  std::thread worker([&] {
    workerSawMainThread = queue.isMainThread();
    queue.postAfter(kDelayNs, [&] {
      if (!onGuiThread()) allOnGuiThread = false;
      delayedRanAt = dispatch::monotonicNanos();
    });
    for (int i = 0; i < 200; ++i)
      queue.post([&, i] {
        if (!onGuiThread()) allOnGuiThread = false;
        order.push_back(i);
      });
    queue.postAndWait([&] { waited = order.size() == 200; });
    done = true;  // postAndWait must not return before its task ran
  });
  const bool finished = QTest::qWaitFor([&] { return delayedRanAt != 0 && done.load(); }, 5000);
  worker.join();
  ASSERT_TRUE(finished);
  EXPECT_TRUE(queue.isMainThread());
  EXPECT_FALSE(workerSawMainThread);
  EXPECT_TRUE(allOnGuiThread);
  EXPECT_TRUE(waited);
  EXPECT_EQ(order.size(), 200u);
  EXPECT_GE(delayedRanAt - start, kDelayNs);
  for (int i = 0; i < 200; ++i) ASSERT_EQ(order[i], i);
}

TEST(AppQtMainQueueTest, TasksStillQueuedDieWithTheQueue) {
  bool ran = false;
  {
    QtMainQueue queue;
    queue.post([&] { ran = true; });
    queue.postAfter(0, [&] { ran = true; });
  }
  QCoreApplication::processEvents();
  QTest::qWait(20);
  EXPECT_FALSE(ran);
}

}  // namespace
}  // namespace quorin::app
