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
// a line break or a backslash (or that uses escapes) is written with `e` and
// those characters escaped, so reading gives pairs that find and insert the
// same bytes. A regex pair's raw tab or line feed is written as \t or \n,
// which a regex and a template read alike.
std::string writePairsTsv(std::span<const BatchPair> pairs);

}  // namespace quorin::replace
