#pragma once

#include <string_view>

#include "dispatch/Processors.h"

namespace quorin::dispatch {

// Prepares a thread the dispatch module owns, from inside it: names it (gdb, top -H and perf show
// the name; Linux keeps the first 15 bytes) and applies the qos hint. Best effort: a name or a
// priority the kernel refuses changes nothing about what the thread runs.
void setUpCurrentThread(std::string_view name, QualityOfService qos);

}  // namespace quorin::dispatch
