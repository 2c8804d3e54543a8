#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <vector>

#include "logs/LogIndex.h"

namespace quorin::logs::detail {

// What a scan of a run of lines needs besides the lines.
struct ScanContext {
  const LogSource* source = nullptr;
  const SeverityRules* rules = nullptr;
  std::optional<TimestampFormat> format;
  jobs::JobToken* token = nullptr;            // cancels; may be null
  std::atomic<int64_t>* linesDone = nullptr;  // lines read so far, for progress; may be null
  int64_t progressTotal = 0;
};

// Where a scan starts: lines [firstLine, endLine), cut into blocks of
// blockLines from firstLine (the last one shorter).
struct ScanStart {
  int64_t firstLine = 0;
  int64_t endLine = 0;
  int64_t blockLines = kLogBlockLines;
  // The level of the message open before firstLine (what leading
  // continuation lines take); none when unknown, settled by the caller.
  Level entering = Level::none;
  // The year a yearless parser is in at firstLine.
  int32_t year = 1970;
};

struct ScanResult {
  std::vector<LogBlock> blocks;
  std::array<std::vector<uint32_t>, 4> alertLines;
  bool complete = false;          // false: cancelled or a line could not be read
  int64_t firstHeadLine = -1;     // the first head line in the run, -1 when none
  Level exitLevel = Level::none;  // the level of the message open after the run
  // Yearless formats: steps the parser took and the first and last times as
  // parsed (in `year` plus the steps before them); kNoTime when none.
  int32_t yearSteps = 0;
  int64_t firstMicros = kNoTime;
  int64_t lastMicros = kNoTime;
};

// Reads the run line by line: timestamp, head or continuation, level of each
// head line. A line is a head when it has a timestamp, when the document has
// no timestamp format (every line its own message), or when it is line 0
// (the lines before the first timestamp form one message).
ScanResult scanLines(const ScanContext& context, const ScanStart& start);

// Whether the format's timestamps have no year (their year comes from the
// file's modification time).
bool isYearless(std::optional<TimestampFormat> format);

// `micros` (a time of a yearless timestamp) moved `years` years on, day and
// time of day kept (29 February becomes 1 March in a common year).
int64_t shiftYears(int64_t micros, int32_t years);

// Joins scans of consecutive runs into one index, in order: the first run
// starts at line 0; every other one was scanned without knowing what came
// before it (entering level none, yearless times in `provisionalYear`).
// Leading continuation lines take the level of the message open before
// them, and a yearless run's year is the one the previous run ended in,
// plus one when its first time lies more than a day before the previous
// run's last (the parser's own rule); the years of all runs are settled
// from the total number of steps when data() is taken.
class ScanJoin {
 public:
  ScanJoin(std::optional<TimestampFormat> format, int32_t modificationYear);

  void append(ScanResult&& run);
  // The index so far (years settled as if no more runs came).
  LogIndexData data(int64_t snapshotVersion, uint64_t rulesGeneration, bool complete) const&;
  // The same, moving the join's lists out instead of copying them.
  LogIndexData take(int64_t snapshotVersion, uint64_t rulesGeneration, bool complete) &&;
  int64_t linesJoined() const { return lines_; }

 private:
  void settle(LogIndexData& data, int64_t snapshotVersion, uint64_t rulesGeneration, bool complete) const;

  std::optional<TimestampFormat> format_;
  int32_t provisionalYear_;
  std::vector<LogBlock> blocks_;
  std::vector<int32_t> blockYearOffset_;  // years each block's run moves, before settling
  std::array<std::vector<uint32_t>, 4> alertLines_;
  int64_t lines_ = 0;
  int64_t timedLines_ = 0;
  Level carried_ = Level::none;
  int32_t yearOffsetAtEnd_ = 0;
  int64_t lastMicros_ = kNoTime;  // in the joined years
};

}  // namespace quorin::logs::detail
