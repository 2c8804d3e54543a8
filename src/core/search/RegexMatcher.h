#pragma once

#include <expected>
#include <memory>
#include <string>
#include <string_view>

#include "search/Matcher.h"

namespace quorin::search {

struct RegexOptions {
  bool caseSensitive = true;
  // Skip lines that lack a string every match must hold (innerLiteral), or
  // else a byte (PCRE2's analysis of the pattern). Off only to compare
  // results with and without it.
  bool prefilter = true;
};

// A regular expression (PCRE2 syntax, Unicode: UTF-8 text, Unicode classes
// and word boundaries) matched line by line: every line is its own subject,
// so "^" and "$" are the line's start and end and no match runs into the
// next line.
//
// PCRE2 (JIT-compiled) runs on every line, or, when the pattern has a
// literal of two bytes or more that every match contains (innerLiteral),
// only on the lines holding it (ByteFinder, or a caseless compare at each
// case of its rarest byte), else on the lines holding a byte that PCRE2
// says every match contains (found with memchr). Text that is not valid UTF-8 is repaired first
// (RepairedOffsetMap); offsets always name the document's own bytes.
//
// A window that is a piece of a very long line is matched with the bytes
// before it as look-behind context and the bytes after `end` as the rest of
// the line, so a match may cross the cut; such pieces are not line starts
// or ends for "^" and "$".
//
// Compiling fails with PCRE2's own message for an invalid pattern.
std::expected<std::shared_ptr<const Matcher>, std::string> compileRegexMatcher(std::string_view pattern,
                                                                               RegexOptions options);

// Whether a compiled matcher skips lines by a literal or required byte (for tests).
bool usesPrefilter(const Matcher& matcher);

}  // namespace quorin::search
