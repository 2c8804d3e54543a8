#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "storage/IndexDelta.h"
#include "storage/LineIndexEpochBox.h"
#include "storage/LineOffsetStorage.h"

namespace quorin::storage {

// The line starts at one epoch of the line index, for readers on any thread.
// Lookups read the shared storage (which guards itself) and apply the
// pending deltas copied at snapshot time; they never take the index's lock.
// Once the index splices an edit, restarts or is told of a new base, the
// epoch moves on and isCurrent() turns false: lookups on a stale snapshot
// stay safe (absent or clamped) but may be wrong, so holders take a new one.
struct LineIndexSnapshot {
  std::shared_ptr<const LineOffsetStorage> storage;
  int64_t baseCount = 0;
  std::shared_ptr<const std::vector<IndexDelta>> deltas;  // in document order; may be null
  int64_t baseBytesScanned = 0;
  int64_t baseBufferLength = 0;
  bool isComplete = false;
  int64_t estimatedLineCount = 1;
  int64_t windowStart = 0;
  int64_t epoch = 0;
  std::shared_ptr<const LineIndexEpochBox> epochBox;

  // The document offset where `line` begins; absent for lines not (yet) known.
  std::optional<int64_t> lineStart(int64_t line) const;
  // The last line whose start is at or before `offset` (0 before the first
  // line); absent when no line is known.
  std::optional<int64_t> lineContaining(int64_t offset) const;
  // Lines whose start is known now: all of them once the build is complete.
  int64_t knownLineCount() const;
  // The exact count once complete; while building, an estimate extrapolated
  // from the bytes scanned, never below knownLineCount().
  int64_t lineCount() const;
  bool isCurrent() const { return epochBox && epochBox->value() == epoch; }
  // Scanned share of the base text, 0…1.
  double fractionScanned() const;
};

}  // namespace quorin::storage
