#pragma once

#include <cstdint>
#include <vector>

namespace quorin::storage {

// One edit (or several touching edits merged) recorded over the line index's
// stored base instead of being spliced into it, so that an edit near the top
// of a file with tens of millions of lines does not rewrite every later
// entry. Lookups apply the deltas on the fly (LineIndexSnapshot::lineStart).
//
// "Base" coordinates are those of the stored line starts. A delta replaces
// the base bytes (baseByteStart, baseByteStart + bytesRemoved] — and with
// them the base lines starting there — by text of its own, whose line starts
// are insertedLineBaseStarts, given as document offsets less the net byte
// change of every delta before this one.
struct IndexDelta {
  int64_t baseLine = 0;  // base line holding baseByteStart
  int64_t baseByteStart = 0;
  int64_t bytesRemoved = 0;     // base bytes replaced
  int64_t lineCountChange = 0;  // inserted lines less the base lines removed
  int64_t byteOffsetDelta = 0;  // net byte change
  std::vector<int64_t> insertedLineBaseStarts;

  bool operator==(const IndexDelta&) const = default;
};

}  // namespace quorin::storage
