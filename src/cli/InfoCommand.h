#pragma once

#include <ostream>
#include <span>
#include <string>

namespace quorin::cli {

// `info FILE [--json]`: what opening FILE finds out without reading it whole —
// its length, the document's length and start after any byte-order mark,
// the encoding (detected from a sample of the first bytes, as when a document
// opens) and the line ending. `args` follows the subcommand's name.
int runInfo(std::span<const std::string> args, std::ostream& out, std::ostream& err);

}  // namespace quorin::cli
