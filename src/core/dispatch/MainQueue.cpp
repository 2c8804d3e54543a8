#include "dispatch/MainQueue.h"

#include "dispatch/Completion.h"

namespace quorin::dispatch {

void MainQueue::postAndWait(Task task) {
  if (isMainThread()) {
    task();
    return;
  }
  Completion completion;
  post([&completion, &task] { completion.run(task); });
  completion.wait();
}

}  // namespace quorin::dispatch
