#include <gtest/gtest.h>

#include <memory>

#include "dispatch/ManualMainQueue.h"
#include "dispatch/WeakTask.h"

namespace quorin::dispatch {
namespace {

struct Document {
  int* refreshes;
  void refresh() { ++*refreshes; }
};

TEST(WeakTask, RunsWhileTheOwnerLivesAndSkipsItOnceDestroyed) {
  ManualMainQueue queue;
  int refreshes = 0;
  auto document = std::make_shared<Document>(&refreshes);
  std::weak_ptr<Document> watch = document;
  Task task = weakTask(watch, [](Document& d) { d.refresh(); });

  queue.post(task);
  queue.runPending();
  EXPECT_EQ(refreshes, 1);

  queue.post(task);
  document.reset();
  EXPECT_TRUE(watch.expired());  // a queued task must not keep its owner alive
  queue.runPending();
  EXPECT_EQ(refreshes, 1);
}

}  // namespace
}  // namespace quorin::dispatch
