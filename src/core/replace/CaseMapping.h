#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace quorin::replace {

// The case changes a replacement template can ask for.
enum class CaseChange : uint8_t { none, upper, lower };

// Appends `text` to `out` in upper or lower case, with ICU's full case
// mapping and the root locale ("ß" becomes "SS", a Greek final sigma "ς").
// Bytes that are not valid UTF-8 are copied unchanged and split the text into
// runs mapped on their own, so a replacement never loses bytes.
void appendCaseMapped(std::string_view text, CaseChange change, std::string& out);

// Appends the first character of `text` in title case (upper) or lower case
// (simple, one-for-one mapping) and returns how many bytes of `text` it took:
// a whole character, or one byte that is not valid UTF-8 (copied as is).
size_t appendFirstCharacterMapped(std::string_view text, CaseChange change, std::string& out);

// Writes a Unicode scalar value as UTF-8.
void appendUtf8(char32_t scalar, std::string& out);

}  // namespace quorin::replace
