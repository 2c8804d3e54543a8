#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QTest>
#include <QThread>
#include <atomic>
#include <thread>
#include <vector>

#include "QtMainQueue.h"
#include "dispatch/Clock.h"

namespace quorin::app {
namespace {

bool onGuiThread() { return QThread::currentThread() == QCoreApplication::instance()->thread(); }

TEST(AppQtMainQueueTest, TasksPostedFromAnyThreadRunOnTheGuiThreadInOrder) {
  QtMainQueue queue;
  EXPECT_TRUE(queue.isMainThread());
  std::vector<int> order;
  std::atomic<bool> allOnGuiThread = true;
  std::atomic<bool> workerSawMainThread = true;
  std::thread worker([&] {
    workerSawMainThread = queue.isMainThread();
    for (int i = 0; i < 200; ++i) {
      queue.post([&, i] {
        if (!onGuiThread()) allOnGuiThread = false;
        order.push_back(i);
      });
    }
  });
  worker.join();
  EXPECT_FALSE(workerSawMainThread);
  ASSERT_TRUE(QTest::qWaitFor([&] { return order.size() == 200; }, 5000));
  EXPECT_TRUE(allOnGuiThread);
  for (int i = 0; i < 200; ++i) ASSERT_EQ(order[i], i);
}

TEST(AppQtMainQueueTest, DelayedTasksAreNeverEarly) {
  QtMainQueue queue;
  constexpr uint64_t kDelayNs = 30'000'000;
  const uint64_t start = dispatch::monotonicNanos();
  uint64_t ranAt = 0;
  bool ranOnGuiThread = false;
  std::thread([&] {
    queue.postAfter(kDelayNs, [&] {
      ranAt = dispatch::monotonicNanos();
      ranOnGuiThread = onGuiThread();
    });
  }).join();
  ASSERT_TRUE(QTest::qWaitFor([&] { return ranAt != 0; }, 5000));
  EXPECT_GE(ranAt - start, kDelayNs);
  EXPECT_TRUE(ranOnGuiThread);
}

TEST(AppQtMainQueueTest, PostAndWaitFromAWorkerReturnsAfterTheTaskRan) {
  QtMainQueue queue;
  std::atomic<bool> done = false;
  bool ran = false;
  std::thread worker([&] {
    queue.postAndWait([&] { ran = onGuiThread(); });
    done = true;
  });
  const bool finished = QTest::qWaitFor([&] { return done.load(); }, 5000);
  worker.join();
  ASSERT_TRUE(finished);
  EXPECT_TRUE(ran);
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
