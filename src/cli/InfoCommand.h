#pragma once

#include <ostream>
#include <span>
#include <string>

namespace quorin::cli {

// `info FILE [--json]`: what opening FILE finds out without reading it —
// its length, the document's length and start after any byte-order mark,
// the encoding and the line ending. `args` follows the subcommand's name.
int runInfo(std::span<const std::string> args, std::ostream& out, std::ostream& err);

}  // namespace quorin::cli
