#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace quorin::text {

// One step of a strict UTF-8 reader (no overlongs, no surrogates, nothing
// past U+10FFFF).
struct Utf8Step {
  enum class Kind : uint8_t {
    valid,      // `length` bytes encode `codePoint`
    invalid,    // `length` bytes form a maximal invalid subpart, to be replaced by one U+FFFD
    truncated,  // the `length` bytes up to the end of input begin a valid sequence that is cut off
  };
  Kind kind;
  uint8_t length;
  char32_t codePoint;  // valid only
};

// Reads the sequence at bytes[i]; i must be below bytes.size().
Utf8Step readUtf8(std::span<const uint8_t> bytes, size_t i);

// The length of the longest prefix of `bytes` that is valid UTF-8 made of
// whole sequences. Runs of ASCII are skipped eight bytes at a time.
size_t validUtf8Prefix(std::span<const uint8_t> bytes);

}  // namespace quorin::text
