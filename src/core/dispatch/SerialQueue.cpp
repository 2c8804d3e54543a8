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
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_one();
  thread_.join();
}

void SerialQueue::async(Task task) {
  QUORIN_CHECK(task != nullptr, "an empty task was submitted to a serial queue");
  {
    std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
  }
  wake_.notify_one();
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
  for (;;) {
    Task task;
    {
      std::unique_lock lock(mutex_);
      wake_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
      if (tasks_.empty()) return;  // stopping, and everything queued has run
      task = std::move(tasks_.front());
      tasks_.pop_front();
    }
    task();
  }
}

}  // namespace quorin::dispatch
