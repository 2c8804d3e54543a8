#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "storage/PieceTableSnapshot.h"

namespace quorin::storage {

// One stretch of the line index's base text to scan for line starts.
struct LineScanRequest {
  int64_t from = 0;               // base offset where scanning begins
  int64_t to = 0;                 // base offset where it must end
  int64_t baseEnd = 0;            // end of the indexed range; starts at or past it are not lines of the range
  bool startAtEndCounts = false;  // except a start exactly at baseEnd, for a whole-file index
  int64_t readShift = 0;          // document offset = base offset + readShift
  uint8_t terminator = '\n';
  int64_t maxLines = 0;
  int64_t chunkBytes = 1 << 20;
  int chunksPerCheck = 16;
};

struct LineScanResult {
  std::vector<int64_t> starts;  // base offsets, ascending
  int64_t scannedTo = 0;        // base offset up to which every start has been found
  int64_t chunks = 0;
  bool stopped = false;  // shouldStop said so; the result is incomplete
};

// Finds line starts (the offsets just after each terminator byte) in
// [from, to), reading the snapshot a chunk at a time into one reused buffer
// and searching each chunk 64 bytes at a time. Ends early once maxLines starts are
// found (scannedTo is then the last of them) or when shouldStop, asked after
// every chunksPerCheck chunks, returns true. Never allocates per line.
LineScanResult scanLineStarts(const PieceTableSnapshot& text, const LineScanRequest& request,
                              const std::function<bool()>& shouldStop);

}  // namespace quorin::storage
