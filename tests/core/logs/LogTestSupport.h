#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "logs/LogIndex.h"
#include "logs/TimestampParser.h"
#include "storage/InMemoryLineIndex.h"
#include "storage/StorageTestSupport.h"

namespace quorin::logs {

// A document on disk with its piece table and a complete line index.
struct LogDoc {
  testing::TempDir dir;
  std::shared_ptr<storage::PieceTable> table;
  std::shared_ptr<storage::InMemoryLineIndex> index;

  explicit LogDoc(std::string_view text) {
    table = std::make_shared<storage::PieceTable>(testing::bufferOver(dir, text));
    index = storage::InMemoryLineIndex::create(table, storage::LineIndexTier::inMemory(),
                                               storage::LineIndexWindow::wholeDocument(), {});
    index->startBuild();
    index->waitUntilComplete(std::chrono::seconds(30));
  }
  LogSource source() const { return {table->snapshot(), index->snapshot()}; }
};

inline std::vector<std::string> splitLines(std::string_view text) {
  std::vector<std::string> lines;
  size_t start = 0;
  for (size_t nl; (nl = text.find('\n', start)) != std::string_view::npos; start = nl + 1)
    lines.emplace_back(text.substr(start, nl - start));
  lines.emplace_back(text.substr(start));
  return lines;
}

// The times of a log's lines, read in order by one parser: the reference
// both the hand-built index and the slow resolvers start from.
inline std::vector<std::optional<LineTime>> lineTimes(const std::vector<std::string>& lines,
                                                      TimestampFormat format, int32_t firstYear,
                                                      std::vector<int32_t>* yearAfter = nullptr) {
  TimestampParser parser(format, firstYear);
  std::vector<std::optional<LineTime>> times;
  for (const std::string& line : lines) {
    times.push_back(parser.parse(line));
    if (yearAfter) yearAfter->push_back(firstYear + parser.yearSteps());
  }
  return times;
}

// The times part of a log index, built the obvious way with blocks of
// `blockLines` lines. A block's entering year is the one its first
// timestamped line is read in.
inline LogIndexData handBuiltIndex(const std::vector<std::string>& lines, TimestampFormat format,
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
        block.enteringYear = years[static_cast<size_t>(l)];
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
