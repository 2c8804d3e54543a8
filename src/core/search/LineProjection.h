#pragma once

#include <cstdint>
#include <optional>

namespace quorin::search {

// How a view asks which document lines it shows when only some are visible
// (a filter, folded regions). Lines and rows are 0-based; a row is the
// position of a visible line among the visible lines.
//
// Implementations are immutable once built (or guarded by their owner), so
// the view, the minimap and exports may query them from any thread.
class LineProjection {
 public:
  virtual ~LineProjection() = default;

  // The number of rows.
  virtual int64_t visibleLineCount() const = 0;
  // False outside [0, line count).
  virtual bool isVisible(int64_t line) const = 0;
  // The row showing `line`; absent when the line is hidden or out of range.
  virtual std::optional<int64_t> row(int64_t line) const = 0;
  // The line shown on `row`; absent outside [0, visibleLineCount()).
  virtual std::optional<int64_t> line(int64_t row) const = 0;
  // The first visible line at or after `line` (a negative line counts as 0).
  virtual std::optional<int64_t> nextVisibleLine(int64_t line) const = 0;
  // The last visible line at or before `line`.
  virtual std::optional<int64_t> previousVisibleLine(int64_t line) const = 0;
};

}  // namespace quorin::search
