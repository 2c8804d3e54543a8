#pragma once

// Finding the message a line belongs to, and its time, from the log index
// and a few line reads: shared by the time navigator, the status bar and
// the command line.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "logs/LogIndex.h"
#include "logs/LogIndexData.h"
#include "logs/Timestamp.h"

namespace quorin::logs {

// Bytes of a line read to find its timestamp: the window the index reads,
// so that a line always parses as the index parsed it.
inline constexpr size_t kTimeWindowBytes = kUserRuleWindowBytes;

// Reads the first bytes of a source's lines, without their line break,
// into one reused buffer.
class LineHeads {
 public:
  explicit LineHeads(const LogSource& source) : source_(source) {}

  // Lines whose start is known.
  int64_t lineCount() const { return source_.lines.knownLineCount(); }
  // At most `maxBytes` of `line`; empty past the known lines. Valid until
  // the next read.
  std::string_view read(int64_t line, size_t maxBytes = kTimeWindowBytes);
  const LogSource& source() const { return source_; }

 private:
  const LogSource& source_;
  std::vector<uint8_t> buffer_;
};

// A head line (one with a timestamp) and its time.
struct HeadLine {
  int64_t line = 0;
  LineTime time;
};

// The nearest head line at or above `line`, its time exact (yearless years
// included): a read back to it, through blocks without times in one step,
// and for yearless formats a parse from its block's first line. None above
// the first timestamp, or when the document has no timestamp format.
std::optional<HeadLine> headAtOrAbove(const LogIndexData& data, LineHeads& lines, int64_t line);

// The first head line in file order whose time is at or after `micros`,
// among the indexed lines; none when every indexed time is earlier.
std::optional<HeadLine> firstHeadAtOrAfter(const LogIndexData& data, const LogSource& source, int64_t micros);

// "2026-03-20 12:00:01.250" (the date left out for a time of day alone),
// in the wall time the line was written in; fractions to the millisecond,
// or to the microsecond when finer.
std::string formatLineTime(const LineTime& time);
// A signed span, short: "+250 ms", "+1.25 s", "-3 min 20 s", "+2 h 5 min", "+3 d 4 h".
std::string formatDuration(int64_t micros);

}  // namespace quorin::logs
