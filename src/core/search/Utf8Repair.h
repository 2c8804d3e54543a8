#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace quorin::search {

// Decodes the UTF-8 character at data[0]: its length (1…4) with the scalar
// in `scalar`, or 0 when no valid character starts there (a stray
// continuation byte, an overlong form, a surrogate, a truncated sequence,
// a value past U+10FFFF).
size_t decodeUtf8(const uint8_t* data, size_t available, char32_t& scalar);

// Whether [data, data + length) is valid UTF-8. Runs of ASCII are skipped
// a vector at a time, so typical logs cost little more than a read.
bool isValidUtf8(const uint8_t* data, size_t length);

// Where the bytes of a repaired chunk came from. The regular-expression
// engines only accept valid UTF-8, so every byte that does not belong to a
// valid character is replaced by U+FFFD (three bytes) before they see the
// text; this map turns positions in the repaired text back into the chunk's
// own byte offsets, so reported matches always name the document's bytes.
struct RepairedOffsetMap {
  // Offsets in the original bytes of the replaced bytes, ascending; each one
  // byte replaced by one U+FFFD.
  std::vector<int64_t> invalidOffsets;
  // Set once a match mapped through here covered a replaced byte.
  bool crossed = false;

  // The original offset of a repaired position. A position inside a
  // replacement character (which no match boundary can be) maps to the
  // replaced byte's start.
  int64_t toOriginal(int64_t repaired) const;
  // Maps a match [start, end) of repaired text and notes whether it crossed
  // a replacement.
  std::pair<int64_t, int64_t> mapMatch(int64_t start, int64_t end);
};

// Writes the repaired form of [data, data + length) to `out` and records the
// replaced bytes in `map` (both are cleared first).
void repairUtf8(const uint8_t* data, size_t length, std::string& out, RepairedOffsetMap& map);

}  // namespace quorin::search
