#include "storage/LineIndexSnapshot.h"

#include <algorithm>

namespace quorin::storage {
namespace {

const std::vector<IndexDelta>& noDeltas() {
  static const std::vector<IndexDelta> empty;
  return empty;
}

// Sum of the net byte changes of the deltas whose base start is below `baseOffset`.
int64_t shiftBefore(const std::vector<IndexDelta>& deltas, int64_t baseOffset) {
  int64_t shift = 0;
  for (const IndexDelta& d : deltas) {
    if (d.baseByteStart >= baseOffset) break;
    shift += d.byteOffsetDelta;
  }
  return shift;
}

}  // namespace

std::optional<int64_t> LineIndexSnapshot::lineStart(int64_t line) const {
  if (line < 0 || !storage) return std::nullopt;
  const auto& list = deltas ? *deltas : noDeltas();
  int64_t lineShift = 0;
  int64_t byteShift = 0;  // net bytes of the deltas walked past
  for (const IndexDelta& d : list) {
    const int64_t first = d.baseLine + lineShift;
    if (first >= line) break;
    // Lines first+1 … first+inserted are the delta's own; the base lines it
    // removed are skipped by adding lineCountChange (inserted − removed).
    const auto inserted = static_cast<int64_t>(d.insertedLineBaseStarts.size());
    if (line <= first + inserted) {
      return std::max<int64_t>(0,
                               d.insertedLineBaseStarts[static_cast<size_t>(line - first - 1)] + byteShift);
    }
    lineShift += d.lineCountChange;
    byteShift += d.byteOffsetDelta;
  }
  const int64_t baseLine = line - lineShift;
  if (baseLine < 0 || baseLine >= baseCount) return std::nullopt;
  const auto start = storage->entry(baseLine);
  if (!start) return std::nullopt;
  return std::max<int64_t>(0, *start + shiftBefore(list, *start));
}

int64_t LineIndexSnapshot::knownLineCount() const {
  int64_t count = baseCount;
  if (deltas) {
    for (const IndexDelta& d : *deltas) count += d.lineCountChange;
  }
  return std::max<int64_t>(count, 0);
}

int64_t LineIndexSnapshot::lineCount() const {
  const int64_t known = knownLineCount();
  return isComplete ? known : std::max(known, estimatedLineCount);
}

std::optional<int64_t> LineIndexSnapshot::lineContaining(int64_t offset) const {
  const int64_t known = knownLineCount();
  if (known == 0) return std::nullopt;
  // Line starts ascend, so the answer is found by bisection over line numbers.
  int64_t low = 0;
  int64_t high = known - 1;
  while (low < high) {
    const int64_t mid = low + (high - low + 1) / 2;
    const auto start = lineStart(mid);
    if (start && *start <= offset) {
      low = mid;
    } else {
      high = mid - 1;
    }
  }
  return low;
}

double LineIndexSnapshot::fractionScanned() const {
  const int64_t span = baseBufferLength - windowStart;
  if (isComplete || span <= 0) return 1.0;
  return std::clamp(static_cast<double>(baseBytesScanned - windowStart) / static_cast<double>(span), 0.0,
                    1.0);
}

}  // namespace quorin::storage
