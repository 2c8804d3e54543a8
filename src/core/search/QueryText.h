#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quorin::search {

// Expands the find bar's extended escapes: \0 \\ \n \r \t, \xHH (exactly two
// hex digits) and \uHHHH (exactly four), the last two giving that Unicode
// scalar in UTF-8. Anything else (an unknown escape, a trailing backslash, a
// short or unusable \x or \u such as a surrogate) stays as typed.
std::string expandEscapes(std::string_view query);

// Reads a regular expression as a plain alternation of literals ("ERROR|WARN",
// "a\.b"), so it can be searched without the regex engine. Absent when the
// pattern uses anything a literal cannot express: a metacharacter, a class
// escape such as \d or \b, a control character, or an empty alternative.
std::optional<std::vector<std::string>> literalAlternatives(std::string_view pattern);

// The time a search of `documentBytes` may take: 10 s per 100 MiB, at least 10 s.
double searchBudgetSeconds(int64_t documentBytes);

// Whether every byte is below 0x80.
bool isAscii(std::string_view bytes);

}  // namespace quorin::search
