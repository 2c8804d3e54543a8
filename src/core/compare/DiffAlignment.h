#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "compare/LineDiff.h"

namespace quorin::compare {

// A run of display rows: [start, start + count).
struct RowRange {
  int64_t start = 0;
  int64_t count = 0;
  bool operator==(const RowRange&) const = default;
};

// The side-by-side layout of a diff, one entry per display row in each of
// the per-row arrays. A row shows a left line and a right line, or one of
// them against a filler (−1).
struct DiffAlignment {
  std::vector<int32_t> leftLines;
  std::vector<int32_t> rightLines;
  std::vector<bool> changed;
  // The rows of each change block, in order: next/previous-change navigation.
  std::vector<RowRange> blocks;

  int64_t rowCount() const { return static_cast<int64_t>(leftLines.size()); }
};

inline constexpr int32_t kFillerRow = -1;

// Lays out `changes` (as diffLines returns them) over sides of the given line
// counts: unchanged lines pair off one to one, a block's lines pair off as far
// as both sides have them and the longer side's extra lines face fillers.
// Line numbers beyond 32 bits stop the program; the side limits of a
// comparison keep them far below.
DiffAlignment alignDiff(int64_t leftLineCount, int64_t rightLineCount, std::span<const DiffChange> changes);

}  // namespace quorin::compare
