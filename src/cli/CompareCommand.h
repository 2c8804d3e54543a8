#pragma once

#include <ostream>
#include <span>
#include <string>

namespace quorin::cli {

// `compare [--ignore-whitespace] [--ignore-case] [--report FILE] [--json]
// LEFT RIGHT`: compares two files line by line as the compare window does
// and prints the change blocks in the style of diff's normal output, then
// the notices and a summary (or all of it as one JSON object). --report also
// saves the plain-text report; a directory gets "compare-report.txt" in it.
// Exits 0 when the files are equal, 1 when they differ, 2 on error.
int runCompare(std::span<const std::string> args, std::ostream& out, std::ostream& err);

}  // namespace quorin::cli
