#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "dispatch/MainQueue.h"
#include "dispatch/WorkerPool.h"
#include "search/SearchRuntime.h"
#include "search/SearchTypes.h"
#include "storage/ByteRange.h"
#include "storage/PieceTableSnapshot.h"

namespace quorin::search {

// What the find bar says when the bounded scan found nothing.
inline constexpr std::string_view kNoMatchWithinScanMessage =
    "No match within the next 64 MB — use Find for a whole-file pass";

struct FindNextRequest {
  SearchOptions options;
  // Forward: the first match starting at or after `from` (an empty match
  // exactly at `from` is skipped, so that repeating the request moves on).
  // Backward: the last match starting before `from`.
  int64_t from = 0;
  bool backward = false;
  // Past the document's end (its start, going backward) the scan goes on at
  // the other end, within the same byte budget, up to `from`.
  bool wrap = true;
};

// The defaults are the product's; tests shrink them.
struct FindNextLimits {
  int64_t scanBytes = kFindNextScanBytes;  // match starts looked at, both sides of a wrap together
  int64_t windowBytes = 1 << 20;           // text handed to the matcher at a time (whole lines)
  // How far a window reaches beyond its range to find the start or end of
  // the line it cuts; past this a very long line is searched in pieces,
  // which overlap by as much for a regex (a match may run that far past a cut).
  int64_t lineReachBytes = 1 << 20;
  bool regexPrefilter = true;
};

struct FindNextResult {
  std::optional<storage::ByteRange> match;
  bool wrapped = false;  // the match lies past the document's end (start), from the other side
  bool cancelled = false;
  std::optional<std::string> compileError;  // the regex compiler's message
  int64_t bytesScanned = 0;                 // match starts looked at
  int64_t snapshotVersion = 0;
  bool emptyQuery = false;  // nothing to look for (empty, or empty after escapes)
  bool found() const { return match.has_value(); }
  // Why nothing was found, ready to show: "Invalid regex: …" or the bounded
  // scan's message; empty when found, cancelled, or the query is empty.
  std::string describe() const;
};

// Finds the match next to a position without a whole-document pass: it
// looks at no more than `scanBytes` of match starts, so pressing Enter in a
// 50 GB file answers in a bounded time, and leaves the exhaustive count to
// the SearchEngine. It uses the engine's matchers on windows that begin and
// end at line starts, so it finds exactly the matches the engine would
// (regex anchors and word tests see whole lines).
//
// Thread-safety: immutable; find() blocks and belongs off the main thread
// (except for tiny budgets), start() runs it on the worker pool.
class FindNext {
 public:
  using Completion = std::function<void(FindNextResult)>;

  explicit FindNext(FindNextLimits limits = {}, dispatch::WorkerPool* pool = nullptr);

  FindNextResult find(const FindNextRequest& request, const storage::PieceTableSnapshot& text,
                      const SearchCancellation& cancellation) const;

  // Runs find() on the worker pool; the completion always runs (cancelled
  // set after handle.cancel()), on `mainQueue` when one is given.
  SearchHandle start(FindNextRequest request, storage::PieceTableSnapshot text, Completion completion,
                     dispatch::MainQueue* mainQueue = nullptr) const;

  const FindNextLimits& limits() const { return limits_; }

 private:
  FindNextLimits limits_;
  dispatch::WorkerPool* pool_;
};

}  // namespace quorin::search
