#pragma once

#include <expected>
#include <memory>
#include <string>
#include <string_view>

#include "search/Matcher.h"

namespace quorin::search {

struct RegexOptions {
  bool caseSensitive = true;
  // Let vectorscan find the candidate lines first (the regex then runs only
  // on those). Off only to compare results with and without it.
  bool prefilter = true;
};

// A regular expression (PCRE2 syntax, Unicode: UTF-8 text, Unicode classes
// and word boundaries) matched line by line: every line is its own subject,
// so "^" and "$" are the line's start and end and no match runs into the
// next line.
//
// Searching is two-stage. vectorscan, compiled in prefilter mode (which
// widens what it cannot do exactly: back-references, look-around), scans a
// whole window at memory speed and names the lines that may match; PCRE2
// (JIT-compiled) runs only on those and decides the exact matches. A pattern
// vectorscan cannot take even so, or one anchored to the subject (\A, \z,
// \Z, \G), goes to PCRE2 line by line. Text that is not valid UTF-8 is
// repaired first (RepairedOffsetMap); offsets always name the document's
// own bytes.
//
// Compiling fails with PCRE2's own message for an invalid pattern.
std::expected<std::shared_ptr<const Matcher>, std::string> compileRegexMatcher(std::string_view pattern,
                                                                               RegexOptions options);

// Whether a compiled matcher uses the prefilter (for tests and benchmarks).
bool usesPrefilter(const Matcher& matcher);

}  // namespace quorin::search
