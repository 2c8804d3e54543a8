#include "compare/CompareNotices.h"

#include "base/ByteCount.h"

namespace quorin::compare {
namespace {

std::string sideWord(Side side) { return std::string(sideName(side)); }

void addSideNotices(std::vector<std::string>& notices, Side which, const CompareSide& side,
                    const SideKeys& keys, int64_t byteLimit) {
  if (side.partial) notices.push_back("Comparison covers loaded slice only (" + sideWord(which) + " side)");
  if (side.modified)
    notices.push_back(sideWord(which) + " side is the open document's text, unsaved edits included");
  if (side.transcoded) {
    notices.push_back(sideWord(which) + " side transcoded up to " + base::formatByteCount(keys.bytesRead) +
                      " — " + std::string(text::displayName(side.encoding)) + " source compared as Unicode");
  }
  if (keys.truncated) {
    notices.push_back(sideWord(which) + " side truncated at " + base::formatByteCount(byteLimit));
  }
}

}  // namespace

std::string_view lineEndingLabel(text::LineEnding ending) {
  switch (ending) {
    case text::LineEnding::lf: return "LF";
    case text::LineEnding::crlf: return "CRLF";
    case text::LineEnding::cr: return "CR";
  }
  return "LF";
}

std::vector<std::string> comparisonNotices(const CompareSide& left, const SideKeys& leftKeys,
                                           const CompareSide& right, const SideKeys& rightKeys,
                                           int64_t byteLimit) {
  std::vector<std::string> notices;
  if (leftKeys.indexIncomplete) {
    notices.emplace_back(
        "Index still building — comparison covers the indexed portion only; re-run Compare once indexing "
        "finishes");
  }
  if (rightKeys.indexIncomplete) {
    notices.emplace_back("right index still building — comparison covers its indexed portion");
  }
  addSideNotices(notices, Side::left, left, leftKeys, byteLimit);
  addSideNotices(notices, Side::right, right, rightKeys, byteLimit);
  if (left.lineEnding != right.lineEnding) {
    notices.push_back("line endings differ (left " + std::string(lineEndingLabel(left.lineEnding)) +
                      ", right " + std::string(lineEndingLabel(right.lineEnding)) + ") and are not compared");
  }
  return notices;
}

}  // namespace quorin::compare
