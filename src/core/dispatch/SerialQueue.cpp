#include "dispatch/SerialQueue.h"

#include "base/Check.h"
#include "dispatch/Completion.h"
#include "dispatch/ThreadSetup.h"

namespace quorin::dispatch {

namespace {

// The queue whose worker the calling thread is; a thread serves at most one queue for its life.
thread_local const SerialQueue* currentQueue = nullptr;

}  // namespace

SerialQueue::SerialQueue(std::string label, QualityOfService qos)
    : label_(std::move(label)),
      tasks_(std::make_shared<TaskList>()),
      thread_([this, tasks = tasks_, label = label_, qos] { run(*tasks, label, qos); }) {}

SerialQueue::~SerialQueue() {
  tasks_->close();
  if (isCurrent()) {
    // The last reference went with one of the queue's own tasks (an object it was working on held
    // the queue): the thread cannot join itself, so it finishes what is queued and ends on its own,
    // keeping the task list alive through its own reference.
    thread_.detach();
    return;
  }
  thread_.join();
}

void SerialQueue::async(Task task) {
  QUORIN_CHECK(task != nullptr, "an empty task was submitted to a serial queue");
  tasks_->push(std::move(task));
}

void SerialQueue::sync(Task task) {
  QUORIN_CHECK(!isCurrent(), "sync onto a serial queue from its own task would wait for itself forever");
  QUORIN_CHECK(task != nullptr, "an empty task was submitted to a serial queue");
  Completion completion;
  async([&completion, &task] { completion.run(task); });
  completion.wait();
}

bool SerialQueue::isCurrent() const { return currentQueue == this; }

void SerialQueue::run(TaskList& tasks, const std::string& label, QualityOfService qos) {
  setUpCurrentThread(label, qos);
  currentQueue = this;
  // Only `tasks` and `label` from here on: the queue itself may be gone while the last tasks run.
  while (auto task = tasks.take()) (*task)();
}

}  // namespace quorin::dispatch
