#include "compare/CompareSide.h"

namespace quorin::compare {

std::string_view sideName(Side side) { return side == Side::left ? "left" : "right"; }

CompareSide CompareSide::of(document::DescribedSnapshot described, std::string displayName) {
  return CompareSide{
      .displayName = std::move(displayName),
      .snapshot = std::move(described.snapshot),
      .range = described.range,
      .lineEnding = described.lineEnding,
      .encoding = described.encoding,
      .transcoded = described.transcoded,
      .modified = described.modified,
      .partial = described.partial,
  };
}

std::string CompareError::describe() const {
  return "The file “" + sideName + "” couldn't be read for comparison.";
}

}  // namespace quorin::compare
