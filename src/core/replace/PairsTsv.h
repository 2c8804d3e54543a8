#pragma once

#include <cstdint>
#include <expected>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "replace/BatchPair.h"

namespace quorin::replace {

// A line of a pair file that could not be read; describe() names it.
struct TsvError {
  int64_t line = 0;  // 1-based
  std::string detail;
  std::string describe() const { return "Line " + std::to_string(line) + ": " + detail; }
};

// Pair files: one pair a line, `find<TAB>replace[<TAB>flags]`, flags letters
// in any order (r regex, i ignore case, w whole word, e extended escapes). A
// first line "find<TAB>replace<TAB>flags" is a header; blank lines are
// skipped; a CR before the LF is dropped. Fields are otherwise taken as they
// are. The whole text is refused at the first malformed line.
std::expected<std::vector<BatchPair>, TsvError> readPairsTsv(std::string_view text);

// The header, then one line per pair. A literal pair whose texts hold a tab,
// a line break or a backslash is written with `e` and those escaped, so
// reading gives the same pairs back. (A regex pair's texts cannot hold a raw
// tab or line break through the find bar; one that does is escaped the same
// way, which a regex and a template read alike.)
std::string writePairsTsv(std::span<const BatchPair> pairs);

}  // namespace quorin::replace
