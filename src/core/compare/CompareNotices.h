#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "compare/CompareSide.h"
#include "compare/SideReader.h"

namespace quorin::compare {

// The notices shown above a comparison's result, in the order shown: what
// was left out (index still building, slice, byte limit), what the sides are
// (unsaved edits, transcoded text), then what was not compared (line
// endings). `byteLimit` is the limit the sides were read with.
std::vector<std::string> comparisonNotices(const CompareSide& left, const SideKeys& leftKeys,
                                           const CompareSide& right, const SideKeys& rightKeys,
                                           int64_t byteLimit);

// The name a line-ending style is shown with: "LF", "CRLF", "CR".
std::string_view lineEndingLabel(text::LineEnding ending);

}  // namespace quorin::compare
