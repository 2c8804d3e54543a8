#include "filter/ShownLines.h"

#include <algorithm>

#include "base/PageAligned.h"
#include "text/LineEnding.h"

namespace quorin::filter {

bool forEachShownLine(const logs::LogSource& source, const FilterProjection& projection, int64_t maxLineBytes,
                      const std::function<bool(const ShownLine&)>& visit,
                      const search::SearchCancellation* cancellation) {
  const auto& text = source.text;
  const int64_t total = text.totalLength();
  const auto ending = text.originalBuffer().lineEnding();
  const auto terminator = static_cast<char>(text::lineTerminator(ending));
  base::ReadBuffer buffer;
  int64_t previous = -1;
  int64_t sinceCheck = 0;
  for (auto line = projection.nextVisibleLine(0); line; line = projection.nextVisibleLine(*line + 1)) {
    if (++sinceCheck == 4096) {
      sinceCheck = 0;
      if (cancellation != nullptr && cancellation->isCancelled()) return false;
    }
    const int64_t start = source.lines.lineStart(*line).value_or(total);
    const int64_t end = source.lines.lineStart(*line + 1).value_or(total);
    const int64_t length = std::max<int64_t>(std::min(end - start, maxLineBytes + 1), 0);
    buffer.resize(static_cast<size_t>(length));
    const int64_t got = std::max<int64_t>(text.copyBytes({start, start + length}, buffer.data()), 0);
    std::string_view bytes(reinterpret_cast<const char*>(buffer.data()), static_cast<size_t>(got));
    const bool whole = end - start <= maxLineBytes + 1;
    if (whole && !bytes.empty() && bytes.back() == terminator) bytes.remove_suffix(1);
    if (whole && ending == text::LineEnding::crlf && !bytes.empty() && bytes.back() == '\r')
      bytes.remove_suffix(1);
    const bool cut = bytes.size() > static_cast<size_t>(maxLineBytes) || !whole;
    if (cut) bytes = bytes.substr(0, static_cast<size_t>(maxLineBytes));
    if (!visit({*line, bytes, cut, previous >= 0 && *line > previous + 1})) return false;
    previous = *line;
  }
  return true;
}

}  // namespace quorin::filter
