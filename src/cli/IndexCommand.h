#pragma once

#include <ostream>
#include <span>
#include <string>

namespace quorin::cli {

// `index FILE [--json]`: builds FILE's line index as the editor does (the
// synchronous first pass, then the background passes) and prints the line
// count, the storage tier and how long the first pass and the whole build
// took. `args` follows the subcommand's name.
int runIndex(std::span<const std::string> args, std::ostream& out, std::ostream& err);

}  // namespace quorin::cli
