#include "compare/CompareSide.h"

#include "document/Document.h"

namespace quorin::compare {

std::string_view sideName(Side side) { return side == Side::left ? "left" : "right"; }

CompareSide CompareSide::of(const document::Document& document, std::string displayName) {
  const auto mode = document.openMode();
  return CompareSide{
      .displayName = std::move(displayName),
      .snapshot = document.snapshot(),
      .range = document.editableRange(),
      .lineEnding = document.lineEnding(),
      .encoding = document.encoding(),
      .transcoded = document.isTranscoded(),
      .modified = document.isModified(),
      .partial =
          mode == storage::LargeFileOpenMode::windowedSlice || mode == storage::LargeFileOpenMode::tail,
  };
}

std::string CompareError::describe() const {
  return "The file “" + sideName + "” couldn't be read for comparison.";
}

}  // namespace quorin::compare
