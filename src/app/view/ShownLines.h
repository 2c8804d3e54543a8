#pragma once

#include <cstdint>
#include <optional>

#include "search/LineProjection.h"

namespace quorin::app {

// The shown line nearest to `line` (itself when shown; the later one on a
// tie, since reading goes down); absent when nothing is shown.
inline std::optional<int64_t> nearestShownLine(const search::LineProjection& shown, int64_t line) {
  if (shown.isVisible(line)) return line;
  const auto after = shown.nextVisibleLine(line);
  const auto before = line > 0 ? shown.previousVisibleLine(line - 1) : std::nullopt;
  if (!after) return before;
  if (!before) return after;
  return *after - line <= line - *before ? after : before;
}

}  // namespace quorin::app
