#pragma once

#include <ostream>
#include <span>
#include <string>

#include "Options.h"
#include "search/SearchTypes.h"

namespace quorin::cli {

// The find options that `search` and `replace` share (--regex, -i, -w, --escapes) for `query`.
search::SearchOptions searchOptionsFrom(const ParsedOptions& parsed, std::string query);

// `search [--regex] [-i] [-w] [--escapes] [--count] [--json] PATTERN FILE`:
// searches FILE as the find bar does (same engine, cap of 2,000,000 stored
// matches) and prints one line per matching line, "LINE:OFFSET:TEXT"
// (1-based line number, document byte offset of the line's first match, the
// line's text), or the total count of matches, or one JSON object (with
// every match, the line's text on the first match of each line; with
// --count only the totals and the search time). Exits 0 when something matched, 1 when nothing did, 2 on
// an error (an invalid regex, an unreadable file, a search that timed out).
int runSearch(std::span<const std::string> args, std::ostream& out, std::ostream& err);

}  // namespace quorin::cli
