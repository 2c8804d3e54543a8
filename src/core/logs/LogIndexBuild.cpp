#include "logs/LogIndexBuild.h"

#include <algorithm>
#include <string>

#include "logs/LogIndexLines.h"

namespace quorin::logs {
namespace {

constexpr int64_t kSampleLines = 1000;
constexpr int64_t kSampleBytes = 1 << 20;
constexpr int64_t kLaterSamples = 4;
constexpr int64_t kLaterSampleLines = 100;

// Copies lines [firstLine, endLine) (their windows) into `store`, stopping
// at `byteBudget` bytes.
void collectLines(const LogSource& source, int64_t firstLine, int64_t endLine, int64_t byteBudget,
                  std::vector<std::string>& store) {
  detail::LineWindowReader reader(source);
  int64_t bytes = 0;
  for (int64_t line = firstLine; line < endLine && bytes < byteBudget; line += 64) {
    const int64_t end = std::min(line + 64, endLine);
    if (!reader.forEachLine(line, end, [&](int64_t, std::string_view text) {
          bytes += static_cast<int64_t>(text.size()) + 1;
          store.emplace_back(text);
        })) {
      return;
    }
  }
}

}  // namespace

std::optional<TimestampFormat> sampleTimestampFormat(const LogSource& source) {
  const int64_t covered = detail::coveredLineCount(source);
  std::vector<std::string> lines;
  collectLines(source, 0, std::min(covered, kSampleLines), kSampleBytes, lines);
  if (covered > kSampleLines * 2) {
    for (int64_t k = 1; k <= kLaterSamples; ++k) {
      const int64_t at = covered * k / (kLaterSamples + 1);
      collectLines(source, at, std::min(at + kLaterSampleLines, covered), kSampleBytes / 8, lines);
    }
  }
  std::vector<std::string_view> views(lines.begin(), lines.end());
  return detectTimestampFormat(views);
}

namespace detail {

BuildOutcome buildInRounds(const LogSource& source, const SeverityRules& rules,
                           std::optional<TimestampFormat> format, const LogIndexOptions& options,
                           dispatch::WorkerPool& pool, jobs::JobToken* token,
                           const std::function<void(const ScanJoin&)>& afterRound) {
  BuildOutcome outcome{ScanJoin(format, options.modificationYear)};
  const int64_t covered = coveredLineCount(source);
  // Chunks are whole blocks, so that joining never splits one.
  const int64_t chunkLines = std::max<int64_t>(1, options.chunkLines / kLogBlockLines) * kLogBlockLines;
  const int64_t chunks = (covered + chunkLines - 1) / chunkLines;
  // Several chunks per participant (the pool's threads and this one), so
  // that a thread slowed down by other work does not hold the round up.
  const auto perRound = static_cast<int64_t>((pool.threadCount() + 1) * 4);
  std::atomic<int64_t> linesDone{0};
  ScanContext context{&source, &rules, format, token, &linesDone, covered};

  for (int64_t round = 0; round < chunks; round += perRound) {
    const int64_t count = std::min(perRound, chunks - round);
    std::vector<ScanResult> results(static_cast<size_t>(count));
    pool.parallelFor(static_cast<size_t>(count), [&](size_t i) {
      const int64_t chunk = round + static_cast<int64_t>(i);
      ScanStart start{.firstLine = chunk * chunkLines,
                      .endLine = std::min(covered, (chunk + 1) * chunkLines),
                      .year = options.modificationYear};
      results[i] = scanLines(context, start);
    });
    for (ScanResult& result : results) {
      const bool whole = result.complete;
      outcome.join.append(std::move(result));
      if (!whole) return outcome;
    }
    if (afterRound) afterRound(outcome.join);
  }
  outcome.complete = true;
  return outcome;
}

}  // namespace detail

LogIndexData buildLogIndex(const LogSource& source, const SeverityRules& rules,
                           const LogIndexOptions& options, dispatch::WorkerPool* pool,
                           jobs::JobToken* token) {
  const auto format = sampleTimestampFormat(source);
  auto outcome = detail::buildInRounds(source, rules, format, options,
                                       pool ? *pool : dispatch::WorkerPool::shared(), token, nullptr);
  return std::move(outcome.join)
      .take(source.text.version(), rules.generation(), outcome.complete && source.lines.isComplete);
}

}  // namespace quorin::logs
