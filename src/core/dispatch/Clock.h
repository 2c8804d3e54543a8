#pragma once

#include <cstdint>

namespace quorin::dispatch {

// Nanoseconds on CLOCK_MONOTONIC. It never jumps when the wall clock is set, so deadlines and
// intervals are measured with it. The origin is arbitrary: compare values, never display them.
uint64_t monotonicNanos();

}  // namespace quorin::dispatch
