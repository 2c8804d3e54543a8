#pragma once

#include <cstdint>
#include <vector>

#include "storage/EditResult.h"
#include "storage/IndexDelta.h"
#include "storage/LineOffsetStorage.h"

namespace quorin::storage {

// The index of the first stored line start greater than `offset` (the count
// when there is none), by bisection.
int64_t firstEntryAbove(const LineOffsetStorage& storage, int64_t offset);

// The delta list with one more edit folded in. `deltas` is in document order
// with no two deltas touching; `edit` is in document coordinates (after every
// delta in the list). An edit that touches or overlaps recorded deltas is
// merged with them into one, so typing and deleting at one place keeps a
// single delta however long it goes on, and the list stays in order.
std::vector<IndexDelta> withEdit(const std::vector<IndexDelta>& deltas, const EditResult& edit,
                                 const LineOffsetStorage& base);

// Net byte change of all the deltas: document offset = base offset + this,
// for every base offset past the last delta.
int64_t totalByteShift(const std::vector<IndexDelta>& deltas);

// What a delta costs to keep: its fixed part and its line starts.
int64_t deltaMemoryWeight(const IndexDelta& delta);

}  // namespace quorin::storage
