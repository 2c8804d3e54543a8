#pragma once

#include <string_view>
#include <vector>

#include "LogIndexTestSupport.h"

namespace quorin::logs {

// The times of a log's lines, read in order by one parser: the reference
// both the hand-built index and the slow resolvers start from.
inline std::vector<std::optional<LineTime>> lineTimes(const std::vector<std::string_view>& lines,
                                                      TimestampFormat format, int32_t firstYear,
                                                      std::vector<int32_t>* yearAfter = nullptr) {
  TimestampParser parser(format, firstYear);
  std::vector<std::optional<LineTime>> times;
  for (const std::string_view line : lines) {
    times.push_back(parser.parse(line));
    if (yearAfter) yearAfter->push_back(firstYear + parser.yearSteps());
  }
  return times;
}

// The times part of a log index, built the obvious way with blocks of
// `blockLines` lines. A block's entering year is the parser's before the
// block's first line, as the index records it: a year that turns at the
// block's first timestamp is not in it yet.
inline LogIndexData handBuiltIndex(const std::vector<std::string_view>& lines, TimestampFormat format,
                                   int32_t firstYear, int64_t blockLines) {
  std::vector<int32_t> years;
  const auto times = lineTimes(lines, format, firstYear, &years);
  LogIndexData data;
  data.format = format;
  data.firstYear = firstYear;
  data.complete = true;
  data.linesIndexed = static_cast<int64_t>(lines.size());
  for (int64_t first = 0; first < data.linesIndexed; first += blockLines) {
    LogBlock block;
    block.firstLine = first;
    block.lineCount = std::min(blockLines, data.linesIndexed - first);
    block.enteringYear = first == 0 ? firstYear : years[static_cast<size_t>(first - 1)];
    bool seen = false;
    for (int64_t l = first; l < first + block.lineCount; ++l) {
      const auto& t = times[static_cast<size_t>(l)];
      if (!t) continue;
      ++data.timedLines;
      if (!seen) {
        block.firstMicros = block.maxMicros = t->micros;
      } else if (t->micros < block.lastMicros) {
        block.monotonic = false;
      }
      block.lastMicros = t->micros;
      block.maxMicros = std::max(block.maxMicros, t->micros);
      seen = true;
    }
    data.blocks.push_back(block);
  }
  return data;
}

}  // namespace quorin::logs
