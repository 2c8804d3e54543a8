#include "storage/IndexDeltas.h"

#include <algorithm>
#include <iterator>

namespace quorin::storage {
namespace {

// A recorded delta's text in document coordinates: [start, end], and the
// net change of the deltas before it (which turns its stored line starts
// into document offsets).
struct Span {
  int64_t start;
  int64_t end;
  int64_t shiftBefore;
};

std::vector<Span> spansOf(const std::vector<IndexDelta>& deltas) {
  std::vector<Span> spans;
  spans.reserve(deltas.size());
  int64_t shift = 0;
  for (const IndexDelta& d : deltas) {
    const int64_t start = d.baseByteStart + shift;
    spans.push_back({start, start + d.bytesRemoved + d.byteOffsetDelta, shift});
    shift += d.byteOffsetDelta;
  }
  return spans;
}

// The base line holding `offset`: the last entry at or before it (0 if none).
int64_t baseLineAt(const LineOffsetStorage& base, int64_t offset) {
  return std::max<int64_t>(0, firstEntryAbove(base, offset) - 1);
}

}  // namespace

int64_t firstEntryAbove(const LineOffsetStorage& storage, int64_t offset) {
  int64_t low = 0;
  int64_t high = storage.count();
  while (low < high) {
    const int64_t mid = low + (high - low) / 2;
    const auto value = storage.entry(mid);
    if (value && *value <= offset) {
      low = mid + 1;
    } else {
      high = mid;
    }
  }
  return low;
}

std::vector<IndexDelta> withEdit(const std::vector<IndexDelta>& deltas, const EditResult& edit,
                                 const LineOffsetStorage& base) {
  const std::vector<Span> spans = spansOf(deltas);
  const int64_t editStart = edit.docByteStart;
  const int64_t editEnd = editStart + edit.bytesRemoved;  // before the edit

  // Deltas touching [editStart, editEnd] form one run [first, last).
  size_t first = 0;
  while (first < spans.size() && spans[first].end < editStart) ++first;
  size_t last = first;
  while (last < spans.size() && spans[last].start <= editEnd) ++last;

  const int64_t shift = first < spans.size() ? spans[first].shiftBefore : totalByteShift(deltas);
  int64_t runNet = 0;
  for (size_t k = first; k < last; ++k) runNet += deltas[k].byteOffsetDelta;

  // The merged region in document coordinates before the edit, then in base coordinates.
  const int64_t regionStart = first < last ? std::min(editStart, spans[first].start) : editStart;
  const int64_t regionEnd = first < last ? std::max(editEnd, spans[last - 1].end) : editEnd;
  const int64_t baseStart = regionStart - shift;
  const int64_t baseEnd = regionEnd - shift - runNet;

  // Line starts inside the merged region afterwards: those of the merged
  // deltas that the edit left alone (moved by it when they lie after it),
  // and the edit's own.
  std::vector<int64_t> starts;
  for (size_t k = first; k < last; ++k) {
    for (int64_t stored : deltas[k].insertedLineBaseStarts) {
      const int64_t at = stored + spans[k].shiftBefore;
      if (at <= editStart) {
        starts.push_back(at);
      } else if (at > editEnd) {
        starts.push_back(at + edit.netByteDelta);
      }
    }
  }
  starts.insert(starts.end(), edit.insertedNewlineOffsets.begin(), edit.insertedNewlineOffsets.end());
  std::sort(starts.begin(), starts.end());
  for (int64_t& s : starts) s -= shift;

  IndexDelta merged;
  merged.baseLine = baseLineAt(base, baseStart);
  merged.baseByteStart = baseStart;
  merged.bytesRemoved = baseEnd - baseStart;
  const int64_t removedLines = firstEntryAbove(base, baseEnd) - firstEntryAbove(base, baseStart);
  merged.lineCountChange = static_cast<int64_t>(starts.size()) - removedLines;
  merged.byteOffsetDelta = runNet + edit.netByteDelta;
  merged.insertedLineBaseStarts = std::move(starts);

  std::vector<IndexDelta> out;
  out.reserve(deltas.size() - (last - first) + 1);
  out.insert(out.end(), deltas.begin(), deltas.begin() + static_cast<std::ptrdiff_t>(first));
  out.push_back(std::move(merged));
  out.insert(out.end(), deltas.begin() + static_cast<std::ptrdiff_t>(last), deltas.end());
  return out;
}

int64_t totalByteShift(const std::vector<IndexDelta>& deltas) {
  int64_t shift = 0;
  for (const IndexDelta& d : deltas) shift += d.byteOffsetDelta;
  return shift;
}

int64_t deltaMemoryWeight(const IndexDelta& delta) {
  return static_cast<int64_t>(sizeof(IndexDelta) + delta.insertedLineBaseStarts.size() * sizeof(int64_t));
}

}  // namespace quorin::storage
