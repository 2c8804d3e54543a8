#include "search/SearchEngine.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "base/Mutex.h"
#include "base/PageAligned.h"
#include "dispatch/Clock.h"
#include "search/ByteSearch.h"
#include "search/FoldedTextMatcher.h"
#include "search/LiteralMatcher.h"
#include "search/QueryText.h"
#include "search/RegexMatcher.h"
#include "text/LineEnding.h"

namespace quorin::search {
namespace {

constexpr int kMatchesPerCheck = 4096;
constexpr uint64_t kProgressIntervalNs = 50'000'000;

// Everything one search shares between its workers.
struct SearchRun {
  SearchRun(const storage::PieceTableSnapshot& text, const storage::LineIndexSnapshot& lines,
            const SearchCancellation& cancellation, const SearchHooks& hooks, const SearchLimits& limits,
            const Matcher& matcher, uint8_t terminator, uint64_t deadlineNs, int64_t cap, size_t chunks)
      : text(text),
        lines(lines),
        cancellation(cancellation),
        hooks(hooks),
        limits(limits),
        matcher(matcher),
        terminator(terminator),
        deadlineNs(deadlineNs),
        ledger(cap, chunks),
        progress(lines.lineCount()) {}

  const storage::PieceTableSnapshot& text;
  const storage::LineIndexSnapshot& lines;
  const SearchCancellation& cancellation;
  const SearchHooks& hooks;
  const SearchLimits& limits;
  const Matcher& matcher;
  uint8_t terminator;
  uint64_t deadlineNs;
  CapLedger ledger;
  ProgressTracker progress;
  AtomicFlag timedOut;
  base::Mutex reportLock;  // throttles progress reports
  uint64_t lastReportNs GUARDED_BY(reportLock) = 0;

  bool shouldStop() {
    if (timedOut.value() || cancellation.isCancelled()) return true;
    if (dispatch::monotonicNanos() >= deadlineNs) {
      timedOut.set();
      return true;
    }
    return false;
  }

  void addProgress(int64_t lines, int64_t matches) {
    const SearchProgress now = progress.add(lines, matches);
    if (!hooks.onProgress) return;
    const uint64_t ns = dispatch::monotonicNanos();
    {
      base::MutexLock guard(reportLock);
      if (ns - lastReportNs < kProgressIntervalNs) return;
      lastReportNs = ns;
    }
    hooks.onProgress(now);
  }
};

// A byte range of whole lines searched by one worker.
struct Chunk {
  int64_t start = 0;
  int64_t end = 0;
  int64_t firstLine = 0;   // relative (counted from 0) for chunks past the line index
  bool indexed = true;     // line numbers may be looked up in the index
  bool snapStart = false;  // start is a guess: move it to the next line start
  bool snapEnd = false;
};

// Tracks the line of the scan position, counting line breaks lazily: only up
// to each match, and at window ends where the index cannot tell.
class ChunkCollector final : public MatchCollector {
 public:
  ChunkCollector(SearchRun& run, MatchSink& sink, int64_t line, int64_t lineStart)
      : run_(run), sink_(sink), line_(line), lineStart_(lineStart) {}

  void beginWindow(const ScanWindow& window, int64_t dataStart, size_t cursor) {
    window_ = &window;
    dataStart_ = dataStart;
    countedTo_ = cursor;
    windowMatches_ = 0;
  }

  bool add(size_t start, size_t length) override {
    countTo(start);
    const int64_t at = dataStart_ + static_cast<int64_t>(start);
    sink_.add({line_, lineStart_, at, static_cast<int64_t>(length)});
    lastMatchEnd_ = at + static_cast<int64_t>(length);
    ++windowMatches_;
    if (++sinceCheck_ < kMatchesPerCheck) return true;
    sinceCheck_ = 0;
    sink_.publish();
    return !run_.shouldStop();
  }

  bool keepGoing() override { return !run_.shouldStop(); }

  // Moves the line cursor to window position `to`.
  void countTo(size_t to) {
    if (to <= countedTo_) return;
    const uint8_t* from = window_->data + countedTo_;
    const size_t length = to - countedTo_;
    const size_t breaks = countByte(from, length, window_->terminator);
    if (breaks > 0) {
      line_ += static_cast<int64_t>(breaks);
      const auto* last = static_cast<const uint8_t*>(memrchr(from, window_->terminator, length));
      lineStart_ = dataStart_ + (last - window_->data) + 1;
    }
    countedTo_ = to;
  }

  // After a window that ended at a line start known to the index.
  void jumpTo(int64_t line, int64_t lineStart) {
    line_ = line;
    lineStart_ = lineStart;
  }

  int64_t line() const { return line_; }
  int64_t lastMatchEnd() const { return lastMatchEnd_; }
  int64_t windowMatches() const { return windowMatches_; }

 private:
  SearchRun& run_;
  MatchSink& sink_;
  const ScanWindow* window_ = nullptr;
  int64_t dataStart_ = 0;  // document offset of window data[0]
  size_t countedTo_ = 0;
  int64_t line_;
  int64_t lineStart_;
  int64_t windowMatches_ = 0;
  int64_t lastMatchEnd_ = 0;
  int sinceCheck_ = 0;
};

// The first line start at or after `offset` (the offset itself when the byte
// before it is a line break), or `limit`.
int64_t nextLineStart(const storage::PieceTableSnapshot& text, int64_t offset, int64_t limit,
                      uint8_t terminator, base::ReadBuffer& buffer) {
  if (offset <= 0) return 0;
  int64_t at = offset - 1;
  constexpr int64_t kStep = 64 * 1024;
  buffer.resize(kStep);
  while (at < limit) {
    const int64_t got = text.copyBytes({at, std::min(at + kStep, limit)}, buffer.data());
    if (got <= 0) break;
    if (const void* found = std::memchr(buffer.data(), terminator, static_cast<size_t>(got)))
      return at + (static_cast<const uint8_t*>(found) - buffer.data()) + 1;
    at += got;
  }
  return limit;
}

// Reads [start, end) of the text into buffer[at…], resizing it to fit.
void readInto(const storage::PieceTableSnapshot& text, int64_t start, int64_t end, base::ReadBuffer& buffer,
              size_t at) {
  buffer.resize(at + static_cast<size_t>(end - start));
  const int64_t got = text.copyBytes({start, end}, buffer.data() + at);
  if (got < end - start) {  // the file lost bytes under us: search what is there
    std::fill(buffer.begin() + static_cast<std::ptrdiff_t>(at) + std::max<int64_t>(got, 0), buffer.end(),
              uint8_t{0});
  }
}

struct ChunkOutcome {
  ChunkBuffer::Slot slot;
  bool finished = false;  // scanned to its end (not stopped)
};

// Scans [chunk.start, chunk.end) window by window. With `cutAtLines` windows
// end after a line break (pieces of a line only when one line is longer than
// the largest window); without, they are fixed blocks (the serial scan).
ChunkOutcome scanChunk(SearchRun& run, size_t chunkIndex, Chunk chunk, bool cutAtLines, int64_t windowBytes) {
  ChunkOutcome outcome;
  base::ReadBuffer buffer;
  const int64_t total = run.text.totalLength();
  if (chunk.snapStart) chunk.start = nextLineStart(run.text, chunk.start, total, run.terminator, buffer);
  if (chunk.snapEnd) chunk.end = nextLineStart(run.text, chunk.end, total, run.terminator, buffer);
  if (chunk.end <= chunk.start) {
    outcome.finished = true;
    return outcome;
  }

  MatchSink sink(run.ledger, chunkIndex);
  ChunkCollector collector(run, sink, chunk.firstLine, chunk.start);
  const auto scanner = run.matcher.makeScanner();
  const auto before = static_cast<int64_t>(run.matcher.contextBefore());
  // Bytes read past a cut: a literal's longest match; for a regex, whose
  // matches have no longest length, the pieces of a very long line overlap
  // by the limit's bound, and windows of whole lines need none.
  const bool unbounded = run.matcher.overlapAfter() == kUnboundedMatchLength;
  const int64_t after = unbounded ? 0 : static_cast<int64_t>(run.matcher.overlapAfter());
  const int64_t pieceAfter = unbounded ? std::max<int64_t>(run.limits.pieceOverlapBytes, 4) : after;
  const int64_t maxWindow = std::max(run.limits.maxWindowBytes, windowBytes);

  int64_t pos = chunk.start;
  int64_t resume = chunk.start;  // matches must not start before this (one crossed the last cut)
  bool stopped = false;
  while (pos < chunk.end) {
    if (run.shouldStop()) {
      stopped = true;
      break;
    }
    const int64_t dataStart = std::max<int64_t>(pos - before, 0);
    int64_t want = windowBytes;
    int64_t windowEnd = 0;
    bool atLineStart = false;
    int64_t readEnd = 0;
    for (;;) {
      const int64_t cut = std::min(pos + want, chunk.end);
      readEnd = std::min(cut + after, total);
      readInto(run.text, dataStart, readEnd, buffer, 0);
      windowEnd = cut;
      atLineStart = cut == chunk.end;
      if (!cutAtLines || cut == chunk.end) break;
      const size_t from = static_cast<size_t>(pos - dataStart);
      const auto* last = static_cast<const uint8_t*>(
          memrchr(buffer.data() + from, run.terminator, static_cast<size_t>(cut - pos)));
      if (last != nullptr) {
        windowEnd = dataStart + (last - buffer.data()) + 1;
        atLineStart = true;
        break;
      }
      if (want >= maxWindow) break;  // one very long line: search it in pieces
      want = std::min(want * 4, maxWindow);
    }
    if (!atLineStart && pieceAfter > after && readEnd < total) {
      const int64_t pieceEnd = std::min(windowEnd + pieceAfter, total);
      readInto(run.text, readEnd, pieceEnd, buffer, static_cast<size_t>(readEnd - dataStart));
      readEnd = pieceEnd;
    }

    ScanWindow window;
    window.data = buffer.data();
    window.size = buffer.size();
    window.begin = static_cast<size_t>(std::max(pos, resume) - dataStart);
    window.end = static_cast<size_t>(windowEnd - dataStart);
    window.terminator = run.terminator;
    window.dataStartsDocument = dataStart == 0;
    window.dataEndsDocument = readEnd == total;
    const int64_t lineBefore = collector.line();
    collector.beginWindow(window, dataStart, static_cast<size_t>(pos - dataStart));
    // Scanners may fold the buffer in place, so the line cursor is brought to
    // the window end before they run when it has to count.
    const bool jump = atLineStart && chunk.indexed && windowEnd < chunk.end;
    if (window.begin < window.end) scanner->scan(window, collector);
    if (run.shouldStop()) stopped = true;

    if (jump) {
      const auto line = run.lines.lineContaining(windowEnd);
      collector.jumpTo(line.value_or(collector.line()), windowEnd);
    } else {
      collector.countTo(window.end);
    }
    // A match that crossed the cut moves the next start past it.
    resume = std::max(windowEnd, collector.lastMatchEnd());
    run.addProgress(collector.line() - lineBefore, collector.windowMatches());
    sink.publish();
    pos = windowEnd;
    if (stopped) break;
  }
  sink.publish();
  outcome.finished = !stopped;
  outcome.slot.found = sink.found();
  outcome.slot.linesSeen = collector.line() - chunk.firstLine;
  outcome.slot.matches = std::move(sink.matches());
  return outcome;
}

std::shared_ptr<const Matcher> literalMatcher(std::string needle, const SearchOptions& options) {
  const bool fold = !options.caseSensitive && isAscii(needle);
  return std::make_shared<LiteralMatcher>(std::vector<std::string>{std::move(needle)}, fold,
                                          options.wholeWord);
}

}  // namespace

PreparedQuery prepareQuery(const SearchOptions& options, bool regexPrefilter) {
  PreparedQuery prep;
  if (options.regex) {
    auto literals = literalAlternatives(options.query);
    const bool foldable = literals && (options.caseSensitive || std::ranges::all_of(*literals, isAscii));
    if (foldable) {
      prep.matcher = std::make_shared<LiteralMatcher>(std::move(*literals), !options.caseSensitive, false);
      return prep;
    }
    auto compiled = compileRegexMatcher(options.query, {options.caseSensitive, regexPrefilter});
    if (!compiled) {
      prep.error = compiled.error();
    } else {
      prep.matcher = std::move(*compiled);
    }
    return prep;
  }
  std::string needle = options.escapes ? expandEscapes(options.query) : options.query;
  if (needle.empty()) return prep;
  if (needle.find_first_of("\r\n") != std::string::npos) {
    // Matched byte for byte unless the needle is ASCII: spans of lines are
    // searched without decoding.
    prep.spansLines = true;
    prep.matcher = literalMatcher(std::move(needle), options);
  } else if (!options.caseSensitive && !isAscii(needle)) {
    prep.matcher = std::make_shared<FoldedTextMatcher>(needle, options.wholeWord);
  } else {
    prep.matcher = literalMatcher(std::move(needle), options);
  }
  return prep;
}

namespace {

int64_t indexedLineCount(const storage::LineIndexSnapshot& lines) {
  const int64_t known = lines.knownLineCount();
  return lines.isComplete ? known : std::max<int64_t>(known - 1, 0);
}

// Cuts the lines the index knows into about four chunks per worker, and
// whatever lies past them into byte ranges.
std::vector<Chunk> planChunks(const storage::PieceTableSnapshot& text,
                              const storage::LineIndexSnapshot& lines, const SearchLimits& limits,
                              size_t workers) {
  std::vector<Chunk> chunks;
  const int64_t total = text.totalLength();
  const int64_t indexedLines = indexedLineCount(lines);
  const int64_t regionStart = lines.lineStart(0).value_or(0);
  int64_t indexedEnd = lines.isComplete ? total : lines.lineStart(indexedLines).value_or(regionStart);

  if (indexedLines > 0) {
    const int64_t perChunk = linesPerChunk(indexedLines, workers, limits.minLinesPerChunk);
    for (int64_t first = 0; first < indexedLines; first += perChunk) {
      const int64_t next = first + perChunk;
      const auto start = lines.lineStart(first);
      const auto end = next < indexedLines ? lines.lineStart(next) : std::optional<int64_t>(indexedEnd);
      if (!start || !end || *end < *start) {  // an inconsistent index: count every line instead
        chunks.clear();
        indexedEnd = regionStart;
        break;
      }
      chunks.push_back({*start, *end, first, true, false, false});
    }
  }
  if (indexedEnd < total) {
    const int64_t step = std::max<int64_t>(limits.unindexedChunkBytes, 1);
    for (int64_t start = indexedEnd; start < total; start += step) {
      const int64_t end = std::min(start + step, total);
      chunks.push_back({start, end, 0, false, start != indexedEnd, end != total});
    }
  }
  return chunks;
}

}  // namespace

int64_t linesPerChunk(int64_t lines, size_t workers, int64_t minimum) {
  const auto parts = static_cast<int64_t>(4 * std::max<size_t>(workers, 1));
  return std::max<int64_t>({(lines + parts - 1) / parts, minimum, 1});
}

SearchEngine::SearchEngine(SearchLimits limits, dispatch::WorkerPool* pool)
    : limits_(limits), pool_(pool != nullptr ? pool : &dispatch::WorkerPool::shared()) {}

SearchResult SearchEngine::search(int64_t cap, const SearchOptions& options,
                                  const storage::PieceTableSnapshot& text,
                                  const storage::LineIndexSnapshot& lines,
                                  const SearchCancellation& cancellation, const SearchHooks& hooks) const {
  const uint64_t startNs = dispatch::monotonicNanos();
  SearchResult result;
  result.snapshotVersion = text.version();
  const auto finish = [&](SearchResult& r) -> SearchResult {
    r.elapsedSeconds = static_cast<double>(dispatch::monotonicNanos() - startNs) / 1e9;
    r.cancelled = r.cancelled || cancellation.isCancelled();
    r.stale = hooks.currentVersion && hooks.currentVersion() != text.version();
    return std::move(r);
  };
  if (options.query.empty()) return finish(result);

  PreparedQuery prep = prepareQuery(options, limits_.regexPrefilter);
  if (prep.error) {
    result.compileError = std::move(prep.error);
    return finish(result);
  }
  if (!prep.matcher || text.totalLength() == 0) return finish(result);

  const size_t workers = limits_.workers > 0 ? limits_.workers : std::max<size_t>(pool_->threadCount(), 1);
  const double budget = limits_.timeBudgetSeconds.value_or(searchBudgetSeconds(text.totalLength()));
  const auto budgetNs = static_cast<uint64_t>(std::max(budget, 0.0) * 1e9);
  const uint8_t terminator = text::lineTerminator(text.originalBuffer().lineEnding());
  std::vector<Chunk> chunks;
  if (prep.spansLines) {
    chunks.push_back({0, text.totalLength(), 0, false, false, false});
  } else {
    chunks = planChunks(text, lines, limits_, workers);
  }
  SearchRun run(text, lines, cancellation, hooks, limits_, *prep.matcher, terminator, startNs + budgetNs, cap,
                chunks.size());
  ChunkBuffer buffer(chunks.size());
  std::vector<char> finished(chunks.size(), 0);
  const auto body = [&](size_t index) {
    ChunkOutcome outcome =
        prep.spansLines
            ? scanChunk(run, index, chunks[index], false, std::max<int64_t>(limits_.blockBytes, 1))
            : scanChunk(run, index, chunks[index], true, std::max<int64_t>(limits_.windowBytes, 1));
    finished[index] = outcome.finished;
    buffer.put(index, std::move(outcome.slot));
  };
  if (chunks.size() == 1) {
    body(0);
  } else {
    pool_->parallelFor(chunks.size(), body);
  }

  // Merge in chunk order, up to the cap: line numbers of chunks past the
  // index are counted from the chunk before.
  auto slots = buffer.take();
  const auto room = static_cast<size_t>(std::max<int64_t>(cap, 0));
  int64_t lineBase = 0;  // the first line of the next chunk past the index
  bool linesKnown = true;
  for (size_t i = 0; i < slots.size(); ++i) {
    if (!slots[i]) continue;
    ChunkBuffer::Slot& slot = *slots[i];
    result.totalMatchCount += slot.found;
    if (chunks[i].indexed) {
      lineBase = chunks[i].firstLine + slot.linesSeen;  // where the line index ends, for a finished chunk
      if (i + 1 < chunks.size() && !chunks[i + 1].indexed) lineBase = indexedLineCount(lines);
    } else {
      const int64_t first = lineBase;
      lineBase += slot.linesSeen;
      for (SearchMatch& match : slot.matches) match.line += first;
    }
    // A stopped chunk before this one leaves its line numbers unknown.
    for (const SearchMatch& match : slot.matches) {
      if (result.matches.size() == room) break;
      if (linesKnown || chunks[i].indexed) result.matches.push_back(match);
    }
    if (!finished[i] && !chunks[i].indexed) linesKnown = false;
  }
  result.truncated = result.totalMatchCount > static_cast<int64_t>(result.matches.size());
  result.timedOut = run.timedOut.value();
  return finish(result);
}

SearchHandle SearchEngine::start(int64_t cap, SearchOptions options, storage::PieceTableSnapshot text,
                                 storage::LineIndexSnapshot lines, Completion completion,
                                 dispatch::MainQueue* mainQueue, SearchHooks hooks) const {
  SearchHandle handle{std::make_shared<SearchCancellation>()};
  if (mainQueue != nullptr && hooks.onProgress) {
    hooks.onProgress = [mainQueue, report = std::move(hooks.onProgress)](const SearchProgress& progress) {
      mainQueue->post([report, progress] { report(progress); });
    };
  }
  pool_->async([engine = *this, cap, options = std::move(options), text = std::move(text),
                lines = std::move(lines), completion = std::move(completion), mainQueue,
                hooks = std::move(hooks), cancellation = handle.cancellation]() mutable {
    SearchResult result = engine.search(cap, options, text, lines, *cancellation, hooks);
    if (mainQueue != nullptr) {
      // std::function needs a copyable task; the result is moved in once.
      auto shared = std::make_shared<SearchResult>(std::move(result));
      mainQueue->post([completion, shared] { completion(std::move(*shared)); });
    } else {
      completion(std::move(result));
    }
  });
  return handle;
}

}  // namespace quorin::search
