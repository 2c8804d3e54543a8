#include "compare/SideReader.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace quorin::compare {
namespace {

// Large enough that the copy and the progress call cost nothing per line,
// small enough to stay in the cache the hashing reads from.
constexpr int64_t kChunkBytes = int64_t{1} << 20;

}  // namespace

std::expected<SideKeys, CompareError> readSideKeys(const CompareSide& side, LineKeyOptions options,
                                                   int64_t byteLimit, const std::atomic<bool>* cancelled,
                                                   const std::function<void(int64_t)>& progress) {
  const auto& text = side.snapshot.text;
  const auto& lines = side.snapshot.lines;
  SideKeys out;
  const int64_t start = std::clamp<int64_t>(side.range.start, 0, text.totalLength());
  int64_t end = std::clamp<int64_t>(side.range.end, start, text.totalLength());
  // While the index builds, the last line it knows may not have its end yet:
  // read up to that line's start, and nothing after the last line break is a line.
  bool endsAtLineStart = false;
  if (!lines.isComplete) {
    out.indexIncomplete = true;
    endsAtLineStart = true;
    const int64_t known = lines.knownLineCount();
    end = known > 1 ? std::clamp<int64_t>(lines.lineStart(known - 1).value_or(start), start, end) : start;
  }
  const int64_t readEnd = std::min(end, start + std::max<int64_t>(byteLimit, 0));

  // The line index knows how many lines there are to read: reserve exactly
  // rather than growing by doubling, which would hold two copies at the end.
  if (const auto last = lines.lineContaining(readEnd)) {
    const auto first = lines.lineContaining(start).value_or(0);
    out.keys.reserve(static_cast<size_t>(std::max<int64_t>(*last - first + 1, 0)));
  }

  const uint8_t terminator = text::lineTerminator(side.lineEnding);
  LineKeyBuilder builder(options);
  std::vector<uint8_t> buffer(
      static_cast<size_t>(std::min(kChunkBytes, std::max<int64_t>(readEnd - start, 1))));
  int64_t lineBegin = start;
  for (int64_t pos = start; pos < readEnd;) {
    if (cancelled && cancelled->load(std::memory_order_relaxed)) return SideKeys{};
    const int64_t length = std::min<int64_t>(static_cast<int64_t>(buffer.size()), readEnd - pos);
    if (text.copyBytes({pos, pos + length}, buffer.data()) != length) {
      return std::unexpected(
          CompareError{side.displayName, "its text ended early: the file shrank while open"});
    }
    const auto* data = reinterpret_cast<const char*>(buffer.data());
    const auto size = static_cast<size_t>(length);
    size_t at = 0;
    while (at < size) {
      const void* hit = std::memchr(data + at, terminator, size - at);
      if (hit == nullptr) {
        builder.add({data + at, size - at});
        break;
      }
      const auto stop = static_cast<size_t>(static_cast<const char*>(hit) - data) + 1;
      builder.add({data + at, stop - at});  // the key skips the line break itself
      out.keys.push_back(builder.finish());
      at = stop;
      lineBegin = pos + static_cast<int64_t>(at);
    }
    pos += length;
    if (progress) progress(pos - start);
  }

  if (readEnd < end) {
    out.truncated = true;  // the line in progress at the limit is dropped with the rest
  } else if (!endsAtLineStart) {
    out.keys.push_back(builder.finish());  // the last line, ended by the text's end
    lineBegin = end;
  }
  out.bytesRead = lineBegin - start;
  return out;
}

}  // namespace quorin::compare
