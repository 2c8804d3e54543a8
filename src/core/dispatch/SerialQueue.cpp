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
    : label_(std::move(label)), thread_([this, qos] { run(qos); }) {}

SerialQueue::~SerialQueue() {
  QUORIN_CHECK(!isCurrent(), "a serial queue cannot be destroyed by its own task: it would join itself");
  tasks_.close();
  thread_.join();
}

void SerialQueue::async(Task task) {
  QUORIN_CHECK(task != nullptr, "an empty task was submitted to a serial queue");
  tasks_.push(std::move(task));
}

void SerialQueue::sync(Task task) {
  QUORIN_CHECK(!isCurrent(), "sync onto a serial queue from its own task would wait for itself forever");
  QUORIN_CHECK(task != nullptr, "an empty task was submitted to a serial queue");
  Completion completion;
  async([&completion, &task] { completion.run(task); });
  completion.wait();
}

bool SerialQueue::isCurrent() const { return currentQueue == this; }

void SerialQueue::run(QualityOfService qos) {
  setUpCurrentThread(label_, qos);
  currentQueue = this;
  while (auto task = tasks_.take()) (*task)();
}

}  // namespace quorin::dispatch
