#pragma once

#include <atomic>
#include <cstdint>
#include <expected>
#include <functional>
#include <vector>

#include "compare/CompareSide.h"
#include "compare/LineKeys.h"

namespace quorin::compare {

// How many bytes of each side are compared (256 MiB): the keys of a side this
// large stay in the tens of megabytes, and a diff of two such sides still
// takes seconds, not minutes.
inline constexpr int64_t kSideByteLimit = 268'435'456;

// What was read of one side.
struct SideKeys {
  std::vector<uint64_t> keys;    // one per line compared, in order
  int64_t bytesRead = 0;         // of the lines compared, line breaks included
  bool truncated = false;        // stopped at the byte limit; later lines are not compared
  bool indexIncomplete = false;  // the line index was still building: only its indexed lines were read
};

// Reads the lines of `side` in order and keys them, stopping before the
// first line that would take the byte total past `byteLimit`. Lines are the
// line index's: the text between line terminators of the side's line ending
// (a final line without one included), counted from the start of its
// covered range. While the index is still building, only the lines it has
// fully found are read.
//
// `progress`, when given, is called now and then with the bytes read so far.
// Returns an empty SideKeys once `cancelled` is seen; fails when the text
// cannot be read in full (the file shrank under its mapping). Any thread.
std::expected<SideKeys, CompareError> readSideKeys(const CompareSide& side, LineKeyOptions options,
                                                   int64_t byteLimit,
                                                   const std::atomic<bool>* cancelled = nullptr,
                                                   const std::function<void(int64_t)>& progress = {});

}  // namespace quorin::compare
