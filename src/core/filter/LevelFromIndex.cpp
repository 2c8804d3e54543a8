#include "filter/LevelFromIndex.h"

#include <algorithm>

#include "logs/Messages.h"
#include "logs/TimestampParser.h"

namespace quorin::filter {
namespace {

constexpr size_t kFirstAlertSlot = logs::levelSlot(logs::Level::warning);
// Head lines per unit of parallel work.
constexpr size_t kHeadsPerSlice = 16 * 1024;

}  // namespace

bool indexKnowsTheLevels(const FilterJob& job, int64_t lines) {
  const CompiledFilter& f = job.filter;
  const logs::LogIndexData* data = job.context.logData.get();
  const auto atLeastWarning = [](logs::Level level) {
    return level == logs::Level::none || level >= logs::Level::warning;
  };
  return f.needsLevels() && atLeastWarning(f.minimumLevel) && atLeastWarning(f.belowLevel) &&
         data != nullptr && data->complete && data->linesIndexed == lines &&
         data->snapshotVersion == job.source.text.version() &&
         data->rulesGeneration == job.context.rules.generation() && lines <= int64_t{UINT32_MAX};
}

std::optional<LineWords> levelFromIndex(const FilterJob& job, int64_t lines, dispatch::WorkerPool& pool) {
  const CompiledFilter& f = job.filter;
  if (f.minimumLevel < logs::Level::warning || f.belowLevel != logs::Level::none || !f.windows.empty() ||
      !f.includes.empty() || !f.excludes.empty() || f.includeBookmarked || f.excludeBookmarked ||
      !indexKnowsTheLevels(job, lines))
    return std::nullopt;
  const logs::LogIndexData& data = *job.context.logData;
  size_t listed = 0;
  for (size_t slot = logs::levelSlot(f.minimumLevel); slot <= logs::levelSlot(logs::Level::fatal); ++slot)
    listed += data.alertLines[slot - kFirstAlertSlot].size();
  // Reading the line after each listed message beats reading every line in
  // order only while they are few.
  const int64_t sparse = job.limits.sparseAlertLines;
  if (sparse <= 0 || static_cast<int64_t>(listed) * sparse > lines) return std::nullopt;
  std::vector<uint32_t> heads;
  for (size_t slot = logs::levelSlot(job.filter.minimumLevel); slot <= logs::levelSlot(logs::Level::fatal);
       ++slot) {
    const auto& list = data.alertLines[slot - kFirstAlertSlot];
    const auto middle = static_cast<std::ptrdiff_t>(heads.size());
    heads.insert(heads.end(), list.begin(), list.end());
    std::inplace_merge(heads.begin(), heads.begin() + middle, heads.end());
  }
  // Each slice of heads gives the runs of lines its messages cover; the
  // runs are written into the bits afterwards, by one thread.
  const size_t slices = (heads.size() + kHeadsPerSlice - 1) / kHeadsPerSlice;
  std::vector<std::vector<std::pair<int64_t, int64_t>>> runs(slices);
  pool.parallelFor(slices, [&](size_t slice) {
    logs::LineHeads reader(job.source);
    std::optional<logs::TimestampParser> parser;
    if (data.format) parser.emplace(*data.format, data.firstYear);
    const size_t end = std::min(heads.size(), (slice + 1) * kHeadsPerSlice);
    for (size_t i = slice * kHeadsPerSlice; i < end; ++i) {
      if (job.shouldStop()) return;
      const int64_t head = heads[i];
      int64_t last = head + 1;
      // A message runs to the next timestamped line (every line is one in a document without times).
      const int64_t next = i + 1 < heads.size() ? heads[i + 1] : lines;
      logs::LineTime time;
      while (parser && last < next && !parser->parseInto(reader.read(last), time)) ++last;
      runs[slice].emplace_back(head, last);
    }
  });
  if (job.shouldStop()) return std::nullopt;
  LineWords words(static_cast<size_t>(wordsFor(lines)), 0);
  for (const auto& slice : runs) {
    for (const auto& [from, to] : slice) setRange(words, from, to);
  }
  job.addLines(lines);
  return words;
}

}  // namespace quorin::filter
