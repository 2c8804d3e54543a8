#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quorin::search {

// A string that every match of a regex contains.
struct InnerLiteral {
  std::string text;       // lower-cased (ASCII) when caseless
  bool caseless = false;  // compare ASCII letters without regard to case
  bool operator==(const InnerLiteral&) const = default;
};

// The longest run of plain characters in the pattern's top-level sequence
// that no quantifier makes optional or repeats (groups, classes, escapes
// such as \d and anchors end a run; "\." and \Q..\E are plain). Absent when
// the pattern has none, or when it holds anything the reading cannot be sure
// of: a top-level "|", options set after the start ((?i) in the middle,
// (?x) anywhere), (*VERB)s, back-references and other escapes it does not
// know. Each absent answer only costs speed, a wrong one would lose matches.
//
// Caseless (the search ignores case, or the pattern starts with (?i)): only
// ASCII characters count, and not "k" or "s", which also match the Kelvin
// sign and the long s.
std::optional<InnerLiteral> innerLiteral(std::string_view pattern, bool caseSensitive);

}  // namespace quorin::search
