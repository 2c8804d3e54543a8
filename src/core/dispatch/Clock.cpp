#include "dispatch/Clock.h"

#include <time.h>

namespace quorin::dispatch {

uint64_t monotonicNanos() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);  // cannot fail for a valid clock id and pointer
  return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000u + static_cast<uint64_t>(now.tv_nsec);
}

}  // namespace quorin::dispatch
