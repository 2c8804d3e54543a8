#pragma once

#include <ostream>
#include <span>
#include <string>

namespace quorin::cli {

// `filter [-e PATTERN]... [-v PATTERN]... [--regex] [-i] [-w] [--level LEVEL]
// [--from TIME] [--to TIME] [-B N] [-A N] [--messages] [--count|--json] FILE`:
// the lines a filtered view of FILE shows, as "LINE:TEXT" with the original
// 1-based line numbers and "--" between groups that are not adjacent (like
// grep with context), or their count, or JSON. Exits 0 when a line is
// shown, 1 when none is, 2 on an error (an invalid rule, an unreadable
// file, a filter that ran out of time), 130 when interrupted.
int runFilter(std::span<const std::string> args, std::ostream& out, std::ostream& err);

}  // namespace quorin::cli
