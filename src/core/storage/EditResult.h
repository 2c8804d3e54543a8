#pragma once

#include <cstdint>
#include <vector>

namespace quorin::storage {

// What one edit did; handed to the line index, the undo store and the views.
struct EditResult {
  int64_t docByteStart = 0;  // where the edit begins, after clamping
  int64_t bytesRemoved = 0;
  int64_t bytesInserted = 0;
  int64_t netByteDelta = 0;      // bytesInserted − bytesRemoved
  int64_t cursorByteOffset = 0;  // end of the inserted text, or the start of a deletion
  int64_t newVersion = 0;        // unchanged when the edit was a no-op
  // For every line-terminating byte inserted, the document offset just after
  // it (the start of the line it opens), ascending.
  std::vector<int64_t> insertedNewlineOffsets;

  bool operator==(const EditResult&) const = default;
};

}  // namespace quorin::storage
