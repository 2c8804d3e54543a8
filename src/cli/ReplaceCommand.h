#pragma once

#include <ostream>
#include <span>
#include <string>

namespace quorin::cli {

// `replace [--regex] [-i] [-w] [--escapes] [--dry-run] [--json] PATTERN REPLACEMENT FILE`:
// opens FILE as the editor does, replaces every match of PATTERN by
// REPLACEMENT as one bulk edit, and saves through the save coordinator: in
// place, journaled, when every replacement keeps the length, else by an
// atomic rewrite. For a regex PATTERN, REPLACEMENT is a template ($1, ${name},
// \U…\E, see docs/replace.md), checked before the file is opened; for a
// literal one it is taken as typed (with --escapes, \n \t \xHH … are
// expanded in both).
//
// `replace --batch PAIRS.tsv [--sequential] [--dry-run] [--json] FILE` runs
// the pairs of a TSV file (find, replace, flags) in one pass, or pair after
// pair with --sequential, and also prints the count of each pair that
// matched and how many did not (the JSON has every pair's count).
//
// Prints the number of replacements, the strategy, and for a rewrite why the
// file was not patched in place. Exit 0 when something was replaced, 1 when
// nothing matched, 2 on error.
int runReplace(std::span<const std::string> args, std::ostream& out, std::ostream& err);

}  // namespace quorin::cli
