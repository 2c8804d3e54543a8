#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "bookmarks/BookmarkSet.h"
#include "bookmarks/Sidecar.h"
#include "document/DocumentTypes.h"

namespace quorin::bookmarks {

// How far from its saved line a bookmark is looked for in a changed file.
inline constexpr int64_t kReanchorWindowLines = 10'000;
// A line's hash covers at most its first this many bytes: a gigabyte line
// is recognised by its head.
inline constexpr int64_t kHashedLineBytes = 4096;

// The hash a sidecar keeps for `line` of the snapshot (without its line
// break); none past the last line.
std::optional<uint64_t> lineHashAt(const document::DocumentSnapshot& snapshot, int64_t line);

// The sidecar to write for `bookmarks` (ascending) on the snapshot's lines,
// each with its line's hash; bookmarks past the snapshot's end are dropped.
// Any thread.
Sidecar sidecarFor(SidecarFile file, const std::vector<Bookmark>& bookmarks,
                   std::vector<SidecarBookmark> lost, std::string notes,
                   const document::DocumentSnapshot& snapshot);

struct ReanchorResult {
  std::vector<Bookmark> bookmarks;    // ascending lines
  std::vector<SidecarBookmark> lost;  // not found again; kept for the panel and the sidecar
  bool cancelled = false;
};

// Puts saved bookmarks back on the lines of a (complete) snapshot. When the
// file is the one the sidecar described (`unchanged`), lines are trusted.
// Otherwise a bookmark whose line no longer has its text goes to the nearest
// line with the same hash within kReanchorWindowLines (the earlier on a
// tie); one that is not found, or whose line another bookmark took, is lost,
// never moved to a wrong line. Bookmarks lost before are looked for again.
// Cost: one hash per bookmark, and one pass over the windows of those that
// moved. Any thread; `cancelled` is polled.
ReanchorResult reanchor(const Sidecar& sidecar, bool unchanged, const document::DocumentSnapshot& snapshot,
                        const std::function<bool()>& cancelled = {});

}  // namespace quorin::bookmarks
