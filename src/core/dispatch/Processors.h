#pragma once

#include <cstddef>

namespace quorin::dispatch {

// How many CPUs this process may run on, at least 1. Taken from the affinity mask, which taskset
// and container CPU limits narrow; the machine's total would oversubscribe a pinned process.
size_t activeProcessorCount();

// How much the work on a thread matters to the user right now. Only a hint to the kernel: a thread
// gets the process's nice value plus 10 (background) or 5 (utility), so the UI thread and the work
// the user waits for win the CPU on a busy machine; userInitiated and userInteractive keep the
// process's nice value. Raising priority needs privileges an editor does not have, and a thread
// inherits its creator's nice value, so create queues from the main thread (or one of an equal or
// higher class) or they may end up lower than asked.
enum class QualityOfService { background, utility, userInitiated, userInteractive };

}  // namespace quorin::dispatch
