#include "bookmarks/Reanchor.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

namespace quorin::bookmarks {

std::optional<uint64_t> lineHashAt(const document::DocumentSnapshot& snapshot, int64_t line) {
  const auto start = snapshot.lines.lineStart(line);
  if (!start || line >= snapshot.lines.lineCount()) return std::nullopt;
  const int64_t end = snapshot.lines.lineStart(line + 1).value_or(snapshot.text.totalLength());
  std::string text =
      snapshot.text.readBytes({*start, std::min(end, *start + kHashedLineBytes + 2)}).value_or("");
  if (end - *start <= kHashedLineBytes + 2) {
    if (!text.empty() && text.back() == '\n') text.pop_back();
    if (!text.empty() && text.back() == '\r') text.pop_back();
  }
  if (static_cast<int64_t>(text.size()) > kHashedLineBytes) text.resize(kHashedLineBytes);
  return lineTextHash(text);
}

Sidecar sidecarFor(SidecarFile file, const std::vector<Bookmark>& bookmarks,
                   std::vector<SidecarBookmark> lost, std::string notes,
                   const document::DocumentSnapshot& snapshot) {
  Sidecar sidecar{.file = std::move(file), .lost = std::move(lost), .notes = std::move(notes)};
  sidecar.bookmarks.reserve(bookmarks.size());
  for (const Bookmark& mark : bookmarks) {
    if (const auto hash = lineHashAt(snapshot, mark.line))
      sidecar.bookmarks.push_back({mark.line, *hash, mark.note});
  }
  return sidecar;
}

ReanchorResult reanchor(const Sidecar& sidecar, bool unchanged, const document::DocumentSnapshot& snapshot,
                        const std::function<bool()>& cancelled) {
  ReanchorResult result;
  const int64_t lineCount = snapshot.lines.lineCount();
  std::vector<SidecarBookmark> moved;
  std::unordered_set<int64_t> taken;
  for (const SidecarBookmark& mark : sidecar.bookmarks) {
    const bool inFile = mark.line < lineCount;
    if (inFile && (unchanged || lineHashAt(snapshot, mark.line) == mark.textHash)) {
      result.bookmarks.push_back({mark.line, mark.note});
      taken.insert(mark.line);
    } else {
      moved.push_back(mark);
    }
  }
  if (!unchanged) moved.insert(moved.end(), sidecar.lost.begin(), sidecar.lost.end());
  if (moved.empty()) {
    result.lost = unchanged ? sidecar.lost : std::vector<SidecarBookmark>();
    return result;
  }
  if (unchanged) {
    result.lost = moved;
    result.lost.insert(result.lost.end(), sidecar.lost.begin(), sidecar.lost.end());
    return result;
  }
  // One pass over the union of the windows, keeping only the wanted hashes.
  std::vector<std::pair<int64_t, int64_t>> windows;
  std::unordered_set<uint64_t> wanted;
  for (const SidecarBookmark& mark : moved) {
    windows.emplace_back(std::max<int64_t>(0, mark.line - kReanchorWindowLines),
                         std::min(lineCount, mark.line + kReanchorWindowLines + 1));
    wanted.insert(mark.textHash);
  }
  std::sort(windows.begin(), windows.end());
  std::unordered_map<uint64_t, std::vector<int64_t>> linesOf;
  int64_t from = 0;
  for (const auto& [begin, end] : windows) {
    for (int64_t line = std::max(begin, from); line < end; ++line) {
      if ((line & 4095) == 0 && cancelled && cancelled()) {
        result.cancelled = true;
        return result;
      }
      const auto hash = lineHashAt(snapshot, line);
      if (hash && wanted.contains(*hash)) linesOf[*hash].push_back(line);
    }
    from = std::max(from, end);
  }
  for (const SidecarBookmark& mark : moved) {
    const auto& lines = linesOf[mark.textHash];
    const auto after = std::lower_bound(lines.begin(), lines.end(), mark.line);
    std::optional<int64_t> best;
    if (after != lines.end() && *after - mark.line <= kReanchorWindowLines) best = *after;
    if (after != lines.begin() && mark.line - *(after - 1) <= kReanchorWindowLines &&
        (!best || mark.line - *(after - 1) <= *best - mark.line)) {
      best = *(after - 1);
    }
    if (best && taken.insert(*best).second) {
      result.bookmarks.push_back({*best, mark.note});
    } else {
      result.lost.push_back(mark);
    }
  }
  std::sort(result.bookmarks.begin(), result.bookmarks.end(),
            [](const Bookmark& a, const Bookmark& b) { return a.line < b.line; });
  return result;
}

}  // namespace quorin::bookmarks
