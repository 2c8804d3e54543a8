#pragma once

#include "dispatch/Task.h"

namespace quorin::dispatch {

// Something that runs tasks later, in submission order: a SerialQueue in the product, a hand-pumped
// list in tests that need to interleave work with a background job step by step.
//
// Thread-safety: async from any thread.
class Executor {
 public:
  virtual ~Executor() = default;
  virtual void async(Task task) = 0;
};

}  // namespace quorin::dispatch
