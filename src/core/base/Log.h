#pragma once

#include <string_view>

namespace quorin::base {

// Writes one line "[Quorin] " + message to stderr, the system log of a Linux
// desktop session. Thread-safe; each line is written with a single call so
// lines from different threads never interleave.
void logLine(std::string_view message);

}  // namespace quorin::base
