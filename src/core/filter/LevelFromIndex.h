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
// else, the index does not describe exactly these `lines` lines of this
// snapshot, or so many messages qualify that reading the document in order
// is cheaper; the caller then evaluates line by line.
std::optional<LineWords> levelFromIndex(const FilterJob& job, int64_t lines, dispatch::WorkerPool& pool);

// Whether the log index in the job's context describes exactly these
// `lines` lines of this snapshot with these rules, and every level the
// filter compares is warning or above: then the index's lists can stand in
// for severity detection (FilterJob::indexLevels).
bool indexKnowsTheLevels(const FilterJob& job, int64_t lines);

}  // namespace quorin::filter
