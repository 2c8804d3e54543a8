#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <vector>

#include "logs/LogIndex.h"

namespace quorin::logs::detail {

// Bytes of a line the index looks at: every window the parsers and the level
// rules read (the timestamp's first few hundred bytes, 160 bytes after it,
// kUserRuleWindowBytes for user rules) lies inside it.
inline constexpr int64_t kLineWindowBytes = static_cast<int64_t>(kUserRuleWindowBytes);
// Lines are copied out of the text this many bytes at a time; a longer line
// is read only up to kLineWindowBytes, so a gigabyte line costs 4 KiB.
inline constexpr int64_t kReadBatchBytes = 64 * 1024;

// Lines of `source` whose end is known: all of them once the line index is
// complete; while it builds, the last known line may still grow.
int64_t coveredLineCount(const LogSource& source);

// Hands the lines of a source to a callback in order, each as its first
// kLineWindowBytes bytes without the line terminator. One reader per thread;
// its buffers are reused from call to call.
class LineWindowReader {
 public:
  explicit LineWindowReader(const LogSource& source) : source_(source) {}

  // Calls visit(line, text) for lines [firstLine, endLine), which must be
  // covered. False when a line start could not be found (a stale snapshot).
  template <class Visit>
  bool forEachLine(int64_t firstLine, int64_t endLine, Visit&& visit) {
    if (firstLine >= endLine) return true;
    if (!loadStarts(firstLine, endLine)) return false;
    const auto count = static_cast<size_t>(endLine - firstLine);
    size_t i = 0;
    while (i < count) {
      const int64_t from = starts_[i];
      size_t j = i;
      while (j < count && starts_[j + 1] - from <= kReadBatchBytes) ++j;
      if (j == i) {
        // A line longer than a whole batch: only its window matters.
        const int64_t length = std::min(starts_[i + 1] - from, kLineWindowBytes);
        if (!read(from, length)) return false;
        visit(firstLine + static_cast<int64_t>(i), view(0, length, false));
        ++i;
        continue;
      }
      if (!read(from, starts_[j] - from)) return false;
      for (size_t k = i; k < j; ++k) {
        visit(firstLine + static_cast<int64_t>(k),
              view(starts_[k] - from, starts_[k + 1] - starts_[k], true));
      }
      i = j;
    }
    return true;
  }

 private:
  bool loadStarts(int64_t firstLine, int64_t endLine);
  bool read(int64_t from, int64_t length);
  std::string_view view(int64_t offset, int64_t length, bool trim) const {
    const char* begin = reinterpret_cast<const char*>(buffer_.data()) + offset;
    if (trim && length > 0 && (begin[length - 1] == '\n' || begin[length - 1] == '\r')) {
      const bool newline = begin[length - 1] == '\n';
      --length;
      if (newline && length > 0 && begin[length - 1] == '\r') --length;
    }
    return {begin, static_cast<size_t>(std::min(length, kLineWindowBytes))};
  }

  const LogSource& source_;
  // starts_[k] is the start of line firstLine + k; the last entry is where
  // the last line ends (the next line's start or the end of the text).
  std::vector<int64_t> starts_;
  std::vector<uint8_t> buffer_;
};

}  // namespace quorin::logs::detail
