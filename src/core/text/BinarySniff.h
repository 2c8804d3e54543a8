#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace quorin::text {

// How much of a file's start is looked at.
inline constexpr int64_t kBinarySniffBytes = 8 * 1024;

// Whether the bytes (a file's first kBinarySniffBytes, as UTF-8 or a
// single-byte encoding) look like binary data rather than text: a NUL byte,
// or more than one byte in ten a control character that text does not use
// (tab, line breaks, form feed and escape are text). UTF-16 and UTF-32 text
// has NULs everywhere: pass it converted, not raw.
bool looksBinary(std::span<const uint8_t> sample);

}  // namespace quorin::text
