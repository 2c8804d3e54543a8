#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "dispatch/MainQueue.h"
#include "dispatch/WorkerPool.h"
#include "search/Matcher.h"
#include "search/SearchRuntime.h"
#include "search/SearchTypes.h"
#include "storage/LineIndexSnapshot.h"
#include "storage/PieceTableSnapshot.h"

namespace quorin::search {

// How a search divides its work. The defaults are the product's; tests
// shrink them to force many chunks, windows and seams in small texts.
struct SearchLimits {
  size_t workers = 0;                      // 0: the pool's thread count
  int64_t minLinesPerChunk = 1000;         // chunks are about 4 per worker, never smaller than this
  int64_t windowBytes = 1 << 20;           // text read at a time inside a chunk (whole lines)
  int64_t maxWindowBytes = 64 << 20;       // a line longer than this is searched in pieces
  int64_t pieceOverlapBytes = 1 << 20;     // how far a regex match may run past a piece's cut
  int64_t blockBytes = 4 << 20;            // blocks of the serial scan for queries with a line break
  int64_t unindexedChunkBytes = 32 << 20;  // chunks past the end of an unfinished line index
  bool regexPrefilter = true;              // PCRE2 only on lines with a byte every match holds
  // Overrides the time budget that grows with the document (the bounded
  // find-next scan, tests of the time-out).
  std::optional<double> timeBudgetSeconds;
};

// The matcher a search runs for `options`: none for an empty query, PCRE2's
// message for an invalid regular expression. A plain query holding a line
// break `spansLines`: it is matched across lines, byte for byte.
struct PreparedQuery {
  std::shared_ptr<const Matcher> matcher;
  bool spansLines = false;
  std::optional<std::string> error;
};
PreparedQuery prepareQuery(const SearchOptions& options, bool regexPrefilter = true);

// Lines per chunk of the parallel scan: about four chunks per worker, never
// fewer than `minimum` lines in a chunk (except the last).
int64_t linesPerChunk(int64_t lines, size_t workers, int64_t minimum);

struct SearchHooks {
  // Progress, at most every 50 ms, from any worker thread (it must be
  // thread-safe and quick).
  std::function<void(const SearchProgress&)> onProgress;
  // The document's version now; when it differs from the snapshot's at the
  // end, the result is marked stale.
  std::function<int64_t()> currentVersion;
};

// Finds every occurrence of a query in a snapshot of a document of any size,
// on all cores, without building the document as one string.
//
// A query without a line break is searched line by line: the lines are cut
// into chunks (about four per worker) run as one parallel loop, each chunk
// read window by window into a reused buffer; a match never crosses a line
// break. A plain query with a line break is searched serially in 4 MiB
// blocks that overlap by the needle's length. The first `cap` matches in
// document order are stored, the rest only counted. Cancellation and the deadline (10 s per 100 MiB, at least
// 10 s) are checked every 4,096 matches and every window, never per byte.
//
// When the line index is still being built, the lines it knows are chunked
// as usual and the rest of the text is cut into byte ranges snapped to line
// starts; their line numbers are counted as they are scanned.
//
// Thread-safety: a SearchEngine is immutable; any number of searches may run
// at once. search() blocks and must not run on the main thread.
class SearchEngine {
 public:
  using Completion = std::function<void(SearchResult)>;

  explicit SearchEngine(SearchLimits limits = {}, dispatch::WorkerPool* pool = nullptr);

  SearchResult search(int64_t cap, const SearchOptions& options, const storage::PieceTableSnapshot& text,
                      const storage::LineIndexSnapshot& lines, const SearchCancellation& cancellation,
                      const SearchHooks& hooks = {}) const;

  // Runs search() on the worker pool and returns at once. Progress and the
  // completion are posted to `mainQueue` when one is given (the find bar's
  // case), else they run on the worker. The completion always runs, with
  // `cancelled` set after handle.cancel().
  SearchHandle start(int64_t cap, SearchOptions options, storage::PieceTableSnapshot text,
                     storage::LineIndexSnapshot lines, Completion completion,
                     dispatch::MainQueue* mainQueue = nullptr, SearchHooks hooks = {}) const;

  const SearchLimits& limits() const { return limits_; }

 private:
  SearchLimits limits_;
  dispatch::WorkerPool* pool_;
};

}  // namespace quorin::search
