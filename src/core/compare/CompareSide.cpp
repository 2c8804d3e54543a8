#include "compare/CompareSide.h"

namespace quorin::compare {

std::string_view sideName(Side side) { return side == Side::left ? "left" : "right"; }

CompareSide CompareSide::of(document::DescribedSnapshot described, std::string displayName) {
  return CompareSide{std::move(described), std::move(displayName)};
}

std::string CompareError::describe() const {
  return "The file “" + sideName + "” couldn't be read for comparison.";
}

}  // namespace quorin::compare
