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
// Every encoding goes through its ICU converter (see IcuConverter.h); valid
// UTF-8 is returned as it is without one. A character cut at either end of
// `bytes` shows as U+FFFD (in the double-byte legacy encodings a range that
// begins on a trail byte may also misread the character after it, since
// their trail bytes overlap ASCII).
// Thread-safe: each call uses converters of its own.
std::string decodeToUtf8(std::span<const uint8_t> bytes, DetectedEncoding encoding);

// Lossy UTF-8 validation: valid input is returned unchanged.
std::string decodeUtf8Lossy(std::span<const uint8_t> bytes);

// Appends the UTF-8 form of a code point (U+FFFD for surrogates and values
// past U+10FFFF).
void appendUtf8(std::string& out, char32_t codePoint);

}  // namespace quorin::text
