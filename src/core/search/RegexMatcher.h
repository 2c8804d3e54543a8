#pragma once

#include <expected>
#include <memory>
#include <string>
#include <string_view>

#include "search/Matcher.h"

namespace quorin::search {

struct RegexOptions {
  bool caseSensitive = true;
  // Skip lines that lack a byte every match must hold (PCRE2's analysis of
  // the pattern). Off only to compare results with and without it.
  bool prefilter = true;
};

// A regular expression (PCRE2 syntax, Unicode: UTF-8 text, Unicode classes
// and word boundaries) matched line by line: every line is its own subject,
// so "^" and "$" are the line's start and end and no match runs into the
// next line.
//
// PCRE2 (JIT-compiled) runs on every line, or, when the pattern has a byte
// that every match contains, only on the lines holding it (found with
// memchr). Text that is not valid UTF-8 is repaired first
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

// Whether a compiled matcher skips lines by a required byte (for tests).
bool usesPrefilter(const Matcher& matcher);

}  // namespace quorin::search
