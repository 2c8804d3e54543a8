#include "dispatch/Processors.h"

#include <sched.h>

#include <thread>

namespace quorin::dispatch {

size_t activeProcessorCount() {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (::sched_getaffinity(0, sizeof(set), &set) == 0) {
    int count = CPU_COUNT(&set);
    if (count > 0) return static_cast<size_t>(count);
  }
  // Only machines with more CPUs than cpu_set_t holds (1024) get here; the total is a fair answer.
  unsigned total = std::thread::hardware_concurrency();
  return total > 0 ? total : 1;
}

}  // namespace quorin::dispatch
