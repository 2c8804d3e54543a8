#pragma once

#include <deque>

#include "dispatch/Executor.h"

namespace quorin::testing {

// A background queue the test pumps itself, to place its own steps between
// the tasks of a build, a save or a compaction.
class ManualExecutor final : public dispatch::Executor {
 public:
  void async(dispatch::Task task) override { tasks.push_back(std::move(task)); }
  // Runs the oldest task; false when there was none.
  bool runOne() {
    if (tasks.empty()) return false;
    auto task = std::move(tasks.front());
    tasks.pop_front();
    task();
    return true;
  }
  // Runs tasks, including the ones they queue, until none is left.
  void runAll() {
    while (runOne()) {
    }
  }

  std::deque<dispatch::Task> tasks;
};

}  // namespace quorin::testing
