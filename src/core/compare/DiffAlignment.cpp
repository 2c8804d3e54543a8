#include "compare/DiffAlignment.h"

#include <algorithm>
#include <limits>

#include "base/Check.h"

namespace quorin::compare {
namespace {

class RowWriter {
 public:
  explicit RowWriter(DiffAlignment& out) : out_(out) {}

  void row(int64_t left, int64_t right, bool changed) {
    out_.leftLines.push_back(narrow(left));
    out_.rightLines.push_back(narrow(right));
    out_.changed.push_back(changed);
  }

 private:
  static int32_t narrow(int64_t line) {
    QUORIN_CHECK(line <= std::numeric_limits<int32_t>::max(), "a line number does not fit the alignment");
    return static_cast<int32_t>(line);
  }
  DiffAlignment& out_;
};

}  // namespace

DiffAlignment alignDiff(int64_t leftLineCount, int64_t rightLineCount, std::span<const DiffChange> changes) {
  DiffAlignment out;
  // Every left line takes a row, plus the fillers facing a block's extra right lines.
  int64_t rows = leftLineCount;
  for (const DiffChange& change : changes) rows += std::max<int64_t>(change.rightCount - change.leftCount, 0);
  out.leftLines.reserve(static_cast<size_t>(rows));
  out.rightLines.reserve(static_cast<size_t>(rows));
  out.changed.reserve(static_cast<size_t>(rows));
  out.blocks.reserve(changes.size());

  RowWriter writer(out);
  int64_t left = 0;
  int64_t right = 0;
  for (const DiffChange& change : changes) {
    QUORIN_CHECK(change.leftStart - left == change.rightStart - right && change.leftStart >= left,
                 "change blocks must be ascending and separated by equal unchanged runs");
    for (; left < change.leftStart; ++left, ++right) writer.row(left, right, false);
    const int64_t firstRow = out.rowCount();
    const int64_t paired = std::min(change.leftCount, change.rightCount);
    for (int64_t i = 0; i < paired; ++i) writer.row(left++, right++, true);
    for (int64_t i = paired; i < change.leftCount; ++i) writer.row(left++, kFillerRow, true);
    for (int64_t i = paired; i < change.rightCount; ++i) writer.row(kFillerRow, right++, true);
    out.blocks.push_back({firstRow, out.rowCount() - firstRow});
  }
  QUORIN_CHECK(leftLineCount - left == rightLineCount - right, "unchanged tails must have the same length");
  for (; left < leftLineCount; ++left, ++right) writer.row(left, right, false);
  return out;
}

}  // namespace quorin::compare
