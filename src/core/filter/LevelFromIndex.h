#pragma once

#include <optional>

#include "dispatch/WorkerPool.h"
#include "filter/FilterChunk.h"
#include "filter/LineBits.h"

namespace quorin::filter {

// The lines of a filter that only asks for messages at warning or above,
// taken from the log index's lists of such messages instead of reading the
// document: each listed head line, and the continuation lines after it (read
// until the next timestamped line). None when the filter asks for anything
// else, or the index does not describe exactly these `lines` lines of this
// snapshot; the caller then evaluates line by line.
std::optional<LineWords> levelFromIndex(const FilterJob& job, int64_t lines, dispatch::WorkerPool& pool);

}  // namespace quorin::filter
