#include <gtest/gtest.h>

#include <cmath>

#include "jobs/JobRegistry.h"

namespace quorin::jobs {
namespace {

TEST(JobRegistryTest, ListsRunningJobsUntilTheyFinishOrAreReleased) {
  JobRegistry registry;
  auto first = registry.begin("Indexing rows");
  auto second = registry.begin("Comparing");
  first->setProgress(0.25);
  second->setProgress(std::nan(""));
  EXPECT_TRUE(registry.cancel(second->id()));
  EXPECT_EQ(registry.jobs(), (std::vector<JobInfo>{{first->id(), "Indexing rows", 0.25, false},
                                                   {second->id(), "Comparing", 0, true}}));
  first->setProgress(1.5);
  EXPECT_EQ(first->progress(), 1.0);

  first->finish();
  EXPECT_EQ(registry.jobs().size(), 1u);
  EXPECT_FALSE(registry.cancel(first->id()));
  second.reset();  // a job that ends without finish() leaves the list too
  EXPECT_TRUE(registry.jobs().empty());

  auto third = registry.begin("c");
  registry.cancelAll();
  EXPECT_TRUE(third->isCancelled());
}

}  // namespace
}  // namespace quorin::jobs
