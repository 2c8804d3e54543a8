#pragma once

#include <ostream>
#include <span>
#include <string>

namespace quorin::cli {

// `replace [--regex] [-i] [-w] [--escapes] [--dry-run] PATTERN REPLACEMENT FILE`:
// opens FILE as the editor does, replaces every match of PATTERN by
// REPLACEMENT (taken literally; with --escapes, \n \t \xHH … are expanded in
// both) as one bulk edit, and saves through the save coordinator: in place,
// journaled, when every replacement keeps the length, else by an atomic
// rewrite. Prints the number of sites replaced, the strategy, and for a
// rewrite why the file was not patched in place. Exit 0 when something was
// replaced, 1 when nothing matched, 2 on error.
int runReplace(std::span<const std::string> args, std::ostream& out, std::ostream& err);

}  // namespace quorin::cli
