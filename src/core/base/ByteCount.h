#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace quorin::base {

// A byte count as file managers show sizes: decimal units (1 KB = 1,000
// bytes), whole kilobytes, one decimal for megabytes, two from gigabytes on,
// trailing zeros dropped: "Zero KB", "1 byte", "999 bytes", "12 KB",
// "1.5 MB", "2.15 GB".
std::string formatByteCount(int64_t bytes);

// "1,234,567" with `separator` between groups of three (the locale's
// grouping separator; the shell passes its own).
std::string groupDigits(int64_t number, std::string_view separator = ",");

}  // namespace quorin::base
