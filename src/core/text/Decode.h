#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "text/DetectedEncoding.h"

namespace quorin::text {

// Decodes document bytes to UTF-8 text for display. Never fails: every
// malformed sequence becomes one U+FFFD per maximal invalid subpart (the
// WHATWG rule that browsers and most editors follow), so a range cut in the
// middle of a character shows a replacement character rather than nothing.
//
// UTF-8 (with or without mark), UTF-16 and UTF-32 in both byte orders and
// ISO Latin-1 are decoded here. The multi-byte legacy encodings and
// Windows-1252 are decoded as lossy UTF-8 until their converters exist.
std::string decodeToUtf8(std::span<const uint8_t> bytes, DetectedEncoding encoding);

// Lossy UTF-8 validation: valid input is returned unchanged.
std::string decodeUtf8Lossy(std::span<const uint8_t> bytes);

// Appends the UTF-8 form of a code point (U+FFFD for surrogates and values
// past U+10FFFF).
void appendUtf8(std::string& out, char32_t codePoint);

}  // namespace quorin::text
