#pragma once

#include <memory>
#include <string>
#include <thread>

#include "dispatch/Executor.h"
#include "dispatch/Processors.h"
#include "dispatch/Task.h"
#include "dispatch/TaskList.h"

namespace quorin::dispatch {

// Runs tasks one at a time, in the order they were submitted, on a thread of its own. Work that
// must never overlap (building one file's line index, compacting one document) goes on one queue
// and then needs no locks of its own.
//
// Thread-safety: every member may be called from any thread. Destroy the queue once nobody submits
// to it any more. Destroyed from one of its own tasks (the last reference held by what the task
// works on), it cannot wait for itself: its thread runs what is still queued and ends by itself.
// Failure: a task must not throw; an exception escaping it ends the process, as on any thread.
class SerialQueue final : public Executor {
 public:
  // The worker thread is named after the label, so "quorin.lineindex" shows up in gdb and top -H.
  explicit SerialQueue(std::string label, QualityOfService qos = QualityOfService::utility);
  // Runs every task still queued (and those they queue), then joins the thread: once an owner has
  // destroyed its queue, none of its tasks is running or will run against it. From one of its own
  // tasks it cannot join; the thread then finishes the queued tasks and ends unjoined.
  ~SerialQueue() override;
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  const std::string& label() const { return label_; }

  void async(Task task) override;
  // Runs task on the queue after everything submitted before it and returns once it finished,
  // rethrowing what it threw. From one of the queue's own tasks it would wait for itself forever,
  // so that stops the program. Two queues syncing onto each other still deadlock: don't.
  void sync(Task task);
  // Whether the caller is a task running on this queue; for checking that state is confined to it.
  bool isCurrent() const;

 private:
  void run(TaskList& tasks, const std::string& label, QualityOfService qos);

  const std::string label_;
  std::shared_ptr<TaskList> tasks_;  // shared with the thread, which may outlive the queue
  std::thread thread_;               // declared last: it starts running once the members above exist
};

}  // namespace quorin::dispatch
