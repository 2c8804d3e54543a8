#include "dispatch/WorkerPool.h"

#include <algorithm>
#include <memory>
#include <string>

#include "base/Check.h"
#include "dispatch/ParallelLoop.h"
#include "dispatch/ThreadSetup.h"

namespace quorin::dispatch {

namespace {

// The pool whose worker the calling thread is, if any.
thread_local const WorkerPool* currentPool = nullptr;

}  // namespace

WorkerPool::WorkerPool(size_t threads) {
  QUORIN_CHECK(threads > 0, "a worker pool needs at least one thread");
  threads_.reserve(threads);
  try {
    for (size_t i = 0; i < threads; ++i) threads_.emplace_back([this, i] { run(i); });
  } catch (...) {
    stopAndJoin();  // the threads already started would otherwise outlive the pool
    throw;
  }
}

WorkerPool::~WorkerPool() {
  QUORIN_CHECK(currentPool != this,
               "a worker pool cannot be destroyed by its own task: it would join itself");
  stopAndJoin();
}

WorkerPool& WorkerPool::shared() {
  static WorkerPool* const pool = new WorkerPool();
  return *pool;
}

void WorkerPool::async(Task task) {
  QUORIN_CHECK(task != nullptr, "an empty task was submitted to a worker pool");
  tasks_.push(std::move(task));
}

void WorkerPool::parallelFor(size_t count, const std::function<void(size_t)>& body) {
  if (count == 0) return;
  auto loop = std::make_shared<ParallelLoop>(count, body);
  // The caller takes one share, so more helpers than indices left or than threads would only
  // wake workers to find nothing to do.
  size_t helpers = std::min(count - 1, threadCount());
  try {
    for (size_t i = 0; i < helpers; ++i) async([loop] { loop->work(); });
  } catch (...) {
    // Out of memory for a helper: fewer hands, same result. Leaving here instead would let the
    // helpers already queued run body after the caller's frame is gone.
  }
  loop->work();
  loop->wait();
}

void WorkerPool::run(size_t index) {
  setUpCurrentThread("quorin.pool." + std::to_string(index), QualityOfService::userInitiated);
  currentPool = this;
  while (auto task = tasks_.take()) (*task)();
}

void WorkerPool::stopAndJoin() {
  tasks_.close();
  for (std::thread& thread : threads_) thread.join();
}

}  // namespace quorin::dispatch
