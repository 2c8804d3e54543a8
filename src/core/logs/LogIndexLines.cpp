#include "logs/LogIndexLines.h"

namespace quorin::logs::detail {

int64_t coveredLineCount(const LogSource& source) {
  const int64_t known = source.lines.knownLineCount();
  return source.lines.isComplete ? known : std::max<int64_t>(known - 1, 0);
}

bool LineWindowReader::loadStarts(int64_t firstLine, int64_t endLine) {
  const auto& lines = source_.lines;
  const int64_t known = lines.knownLineCount();
  const bool plain = lines.storage && (!lines.deltas || lines.deltas->empty());
  const int64_t lastStart = std::min(endLine, known - 1);  // the last start needed from the index
  if (plain) {
    // Without pending edits a line's start is the stored entry: one locked
    // read for the whole range instead of one per line.
    starts_ = lines.storage->entries(firstLine, lastStart + 1);
    if (static_cast<int64_t>(starts_.size()) != lastStart + 1 - firstLine) return false;
  } else {
    starts_.clear();
    for (int64_t line = firstLine; line <= lastStart; ++line) {
      const auto start = lines.lineStart(line);
      if (!start) return false;
      starts_.push_back(*start);
    }
  }
  if (endLine >= known) starts_.push_back(source_.text.totalLength());
  // A stale snapshot may disagree with the text: never read out of order.
  const int64_t total = source_.text.totalLength();
  for (size_t k = 0; k < starts_.size(); ++k) {
    starts_[k] = std::clamp<int64_t>(starts_[k], k == 0 ? 0 : starts_[k - 1], total);
  }
  return static_cast<int64_t>(starts_.size()) == endLine - firstLine + 1;
}

bool LineWindowReader::read(int64_t from, int64_t length) {
  if (static_cast<int64_t>(buffer_.size()) < length) buffer_.resize(static_cast<size_t>(length));
  return length == 0 || source_.text.copyBytes({from, from + length}, buffer_.data()) == length;
}

}  // namespace quorin::logs::detail
