#include "filter/FilterEvaluator.h"

#include <algorithm>
#include <atomic>
#include <cstdio>

#include "base/ByteCount.h"
#include "dispatch/Clock.h"
#include "filter/FilterChunk.h"
#include "filter/LevelFromIndex.h"
#include "filter/LineBits.h"
#include "search/QueryText.h"
#include "text/LineEnding.h"

namespace quorin::filter {
namespace {

constexpr uint64_t kProgressIntervalNs = 50'000'000;

// Lines whose extent the index knows: all of them once complete; while it
// builds, the last known line may still grow.
int64_t knownWholeLines(const storage::LineIndexSnapshot& lines) {
  const int64_t known = lines.knownLineCount();
  return lines.isComplete ? known : std::max<int64_t>(known - 1, 0);
}

int64_t firstDayMicros(const logs::LogIndexData* data) {
  if (data == nullptr) return 0;
  for (const logs::LogBlock& block : data->blocks) {
    if (block.firstMicros != logs::kNoTime) return block.firstMicros;
  }
  return 0;
}

LineVisibilityBitset toBitset(const LineWords& words, int64_t lines) {
  LineVisibilityBitset bitset;
  for (int64_t w = 0; w * 64 < lines; ++w) {
    bitset.appendBits(words[static_cast<size_t>(w)], static_cast<int>(std::min<int64_t>(64, lines - w * 64)));
  }
  bitset.rebuildRankDirectory();
  return bitset;
}

}  // namespace

std::string timedOutNotice(double seconds, int64_t linesEvaluated) {
  char budget[32];
  std::snprintf(budget, sizeof budget, "%.0f", seconds);
  return std::string("The filter stopped after ") + budget +
         " s: the pattern is too slow on this text; lines after " + base::groupDigits(linesEvaluated) +
         " are not filtered";
}

FilterResult evaluateFilter(const CompiledFilter& filter, const logs::LogSource& source,
                            const FilterContext& context, const FilterLimits& limits,
                            const search::SearchCancellation* cancellation,
                            const std::function<void(const FilterProgress&)>& progress,
                            dispatch::WorkerPool* pool) {
  const int64_t documentLines = knownWholeLines(source.lines);
  const int64_t total = std::min(documentLines, limits.endLine.value_or(documentLines));
  const int64_t start = std::clamp<int64_t>(limits.firstLine, 0, total) / 64 * 64;
  const auto* logData = context.logData.get();
  FilterResult result;
  const auto finish = [&](LineWords words, int64_t lines, bool complete) {
    result.projection =
        std::make_shared<FilterProjection>(toBitset(words, lines), filter.options, context.snapshotVersion,
                                           static_cast<int64_t>(context.rules.generation()), complete);
    return result;
  };
  if (filter.showsEverything()) {
    LineWords all(static_cast<size_t>(wordsFor(total)), 0);
    setRange(all, start, total);
    return finish(std::move(all), total, total == documentLines);
  }

  const double budget =
      limits.timeBudgetSeconds.value_or(search::searchBudgetSeconds(source.text.totalLength()));
  const uint64_t deadline = dispatch::monotonicNanos() + static_cast<uint64_t>(std::max(budget, 0.0) * 1e9);
  std::atomic<bool> timedOut{false};
  std::atomic<int64_t> linesDone{0};
  std::atomic<uint64_t> lastReport{0};

  FilterJob job{filter, source, context, limits};
  job.terminator = text::lineTerminator(source.text.originalBuffer().lineEnding());
  if (logData != nullptr) {
    job.format = logData->format;
    job.yearForYearless = logData->firstYear;
  }
  const int64_t referenceDay = firstDayMicros(logData);
  for (const CompiledWindow& window : filter.windows)
    job.windows.push_back(windowMicros(window, referenceDay));
  job.shouldStop = [&] {
    if (cancellation != nullptr && cancellation->isCancelled()) return true;
    if (timedOut.load(std::memory_order_relaxed)) return true;
    if (dispatch::monotonicNanos() < deadline) return false;
    timedOut.store(true, std::memory_order_relaxed);
    return true;
  };
  job.addLines = [&](int64_t lines) {
    const int64_t done = linesDone.fetch_add(lines, std::memory_order_relaxed) + lines;
    if (!progress) return;
    const uint64_t now = dispatch::monotonicNanos();
    uint64_t last = lastReport.load(std::memory_order_relaxed);
    if (now - last >= kProgressIntervalNs && lastReport.compare_exchange_strong(last, now)) {
      progress({done, total});
    }
  };

  dispatch::WorkerPool& workers = pool != nullptr ? *pool : dispatch::WorkerPool::shared();
  if (indexKnowsTheLevels(job, documentLines)) job.indexLevels = logData;
  if (start == 0 && total == documentLines) {
    if (auto words = levelFromIndex(job, total, workers)) {
      // Whole messages already: a level applies to the message.
      LineWords shown = withContext(*words, total, filter.options.contextBefore, filter.options.contextAfter);
      if (progress) progress({total, total});
      return finish(std::move(shown), total, true);
    }
  }

  const int64_t chunkLines = std::max<int64_t>(64, (limits.chunkLines + 63) / 64 * 64);
  const auto chunks = static_cast<size_t>((total - start + chunkLines - 1) / chunkLines);
  std::vector<ChunkOutput> outputs(chunks);
  const auto body = [&](size_t i) {
    const int64_t first = start + static_cast<int64_t>(i) * chunkLines;
    outputs[i] = evaluateChunk(job, first, std::min(first + chunkLines, total));
  };
  if (chunks == 1) {
    body(0);
  } else if (chunks > 1) {
    workers.parallelFor(chunks, body);
  }

  // The prefix of finished chunks, laid end to end (each but the last is whole words).
  // Lines before `start` are not evaluated: hidden, and each its own
  // message so that none joins a message that begins after them.
  LineWords selected(static_cast<size_t>(start / 64), 0),
      heads(static_cast<size_t>(start / 64), ~uint64_t{0});
  int64_t lines = start;
  for (size_t i = 0; i < chunks && outputs[i].finished; ++i) {
    selected.insert(selected.end(), outputs[i].selected.begin(), outputs[i].selected.end());
    heads.insert(heads.end(), outputs[i].heads.begin(), outputs[i].heads.end());
    lines = std::min(start + static_cast<int64_t>(i + 1) * chunkLines, total);
  }
  const bool complete = lines == documentLines;
  if (filter.options.wholeMessages && job.format) widenToMessages(selected, heads, lines);
  selected = withContext(selected, lines, filter.options.contextBefore, filter.options.contextAfter);
  result.cancelled = cancellation != nullptr && cancellation->isCancelled();
  result.timedOut = lines < total && timedOut.load();
  if (result.timedOut) result.notice = timedOutNotice(budget, lines);
  if (progress) progress({lines, total});
  return finish(std::move(selected), lines, complete);
}

}  // namespace quorin::filter
