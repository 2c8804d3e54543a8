#pragma once

#include <cstddef>
#include <functional>
#include <thread>
#include <vector>

#include "dispatch/Processors.h"
#include "dispatch/Task.h"
#include "dispatch/TaskList.h"

namespace quorin::dispatch {

// A fixed set of threads running tasks concurrently, started roughly in submission order. For work
// that splits into independent pieces (searching the chunks of a file); work that needs an order
// belongs on a SerialQueue.
//
// Thread-safety: every member may be called from any thread, including from the pool's own tasks.
// Failure: a task given to async() must not throw (an escaping exception ends the process);
// parallelFor() hands exceptions back to its caller instead.
class WorkerPool {
 public:
  explicit WorkerPool(size_t threads = activeProcessorCount());
  // Runs the tasks still queued, then joins the threads. Destroying a pool from one of its own
  // tasks would join that task's thread, so it stops the program.
  ~WorkerPool();
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  // The process-wide pool, sized to the active processors when first used. It is never destroyed:
  // joining it during static destruction would race with whatever its tasks still use. Its threads
  // inherit the nice value of the first caller, so the application touches it early on the main thread.
  static WorkerPool& shared();

  size_t threadCount() const { return threads_.size(); }

  void async(Task task);

  // Calls body(i) once for every i in [0, count), spread over the workers, and returns when all
  // calls returned. The calling thread works through indices too, so the loop always progresses:
  // calling it from inside a pool task (nested loops) or on a 1-thread pool cannot deadlock.
  // If bodies throw, the indices nobody started are skipped and the first exception is rethrown
  // here once every started call finished, so body's captures are safe to destroy afterwards.
  void parallelFor(size_t count, const std::function<void(size_t)>& body);

 private:
  void run(size_t index);
  void stopAndJoin();

  TaskList tasks_;
  std::vector<std::thread> threads_;
};

}  // namespace quorin::dispatch
