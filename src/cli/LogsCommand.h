#pragma once

#include <ostream>
#include <span>
#include <string>

namespace quorin::cli {

// `logs [--json] [--histogram N] FILE`: reads FILE as the editor's log index
// does and prints the timestamp format found, the share of lines with a
// timestamp, the first and last time (as written, in the timestamps' own
// offset), the messages at each level, the continuation lines and the
// messages they belong to, and with --histogram at most N buckets of
// messages over time, stacked by level, in a round width.
int runLogs(std::span<const std::string> args, std::ostream& out, std::ostream& err);

}  // namespace quorin::cli
