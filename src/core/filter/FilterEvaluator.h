#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "dispatch/WorkerPool.h"
#include "filter/CompiledFilter.h"
#include "filter/FilterProjection.h"
#include "logs/LogIndex.h"
#include "logs/SeverityRules.h"
#include "search/SearchRuntime.h"

namespace quorin::filter {

// How an evaluation divides its work. The defaults are the product's; tests
// shrink them to force many chunks and windows in small texts.
struct FilterLimits {
  size_t workers = 0;                       // 0: the pool's thread count
  int64_t chunkLines = 64 * 1024;           // lines per chunk (rounded up to a multiple of 64)
  int64_t windowBytes = 1 << 20;            // text read at a time inside a chunk (whole lines)
  int64_t maxLineBytes = 64 << 20;          // a longer line is examined in its first maxLineBytes
  std::optional<double> timeBudgetSeconds;  // default: the search engine's (10 s per 100 MiB, at least 10 s)
  // Only lines [firstLine, endLine) are evaluated (firstLine rounded down
  // to a multiple of 64); lines before them come out hidden, and a result
  // that stops at endLine before the document's end is incomplete.
  int64_t firstLine = 0;
  std::optional<int64_t> endLine;
  // How far above the old end appended lines are evaluated again from (a
  // live filter's): the longest message followed back across the old end.
  int64_t appendSlackLines = 1024;
  // A level filter reads the lines after the log index's listed messages
  // instead of the whole document when at most one line in this many is
  // listed (0: never). About 400 ns per listed message against 70 ns per
  // line read in order. Tests set 1 (always) or 0.
  int64_t sparseAlertLines = 5;
};

// What a filter reads besides the text.
struct FilterContext {
  // The log index's data, when there is one: the timestamp format, the
  // year yearless timestamps start in, the first day (for windows given as
  // a clock time alone). Without it lines have no times.
  std::shared_ptr<const logs::LogIndexData> logData;
  logs::SeverityRules rules;
  // The bookmarked lines, ascending, 0-based (none when null).
  std::shared_ptr<const std::vector<int64_t>> bookmarkedLines;
  int64_t snapshotVersion = 0;
};

struct FilterProgress {
  int64_t linesEvaluated = 0;
  int64_t totalLines = 0;
};

struct FilterResult {
  std::shared_ptr<const FilterProjection> projection;
  bool cancelled = false;
  bool timedOut = false;
  // Shown when the filter stopped early ("The filter stopped after 10 s: …").
  std::string notice;
};

// Evaluates `filter` over the lines `source.lines` knows, in parallel
// chunks of whole 64-line words: patterns by the search engine's matchers
// (all include literals in one scan), levels and times per message, then
// whole messages and context. Blocking; never on the main thread.
// `progress` (optional) is called from worker threads, at most every 50 ms.
// A cancelled or timed-out evaluation returns the prefix of lines it
// finished, as an incomplete projection.
FilterResult evaluateFilter(const CompiledFilter& filter, const logs::LogSource& source,
                            const FilterContext& context, const FilterLimits& limits = {},
                            const search::SearchCancellation* cancellation = nullptr,
                            const std::function<void(const FilterProgress&)>& progress = nullptr,
                            dispatch::WorkerPool* pool = nullptr);

// The time-out notice, e.g. "The filter stopped after 10 s: the pattern is
// too slow on this text; lines after 1,234,567 are not filtered".
std::string timedOutNotice(double seconds, int64_t linesEvaluated);

}  // namespace quorin::filter
