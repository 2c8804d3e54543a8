#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "logs/Timestamp.h"
#include "logs/TimestampFields.h"

namespace quorin::logs {

// Reads the timestamps of one document's lines in file order.
//
// The format that matched the previous line is tried first, then the rest of
// the primary format's family (ISO with RFC 5424, syslog with RFC 5424, epoch
// seconds with milliseconds); other formats are never tried.
//
// A line whose bytes up to its seconds repeat the previous timestamped line's
// reuses that line's date, hour and minute: only seconds, fraction and zone
// (or AM/PM) are read again.
//
// Yearless formats start in `yearForYearless`. When a line's time is more
// than a day before the previous line's, the year has turned: the parser
// steps its year forward by one for that line and the ones after it. This
// keeps times rising across New Year when the file is read from the start;
// yearSteps() says how many turns were seen, so a caller that wants the
// last line in the modification year constructs a second parser with
// yearForYearless minus that count.
class TimestampParser {
 public:
  explicit TimestampParser(TimestampFormat primary, int32_t yearForYearless);

  std::optional<LineTime> parse(std::string_view line) {
    LineTime time;
    if (!parseInto(line, time)) return std::nullopt;
    return time;
  }
  // The same into `time` (left unspecified when false).
  bool parseInto(std::string_view line, LineTime& time);

  TimestampFormat lastFormat() const { return current_; }
  int32_t yearSteps() const { return year_ - startYear_; }

 private:
  bool parseWith(TimestampFormat format, std::string_view line, LineTime& time);
  bool parseFresh(TimestampFormat format, std::string_view line, LineTime& time);
  void stepYearIfTurned(LineTime& time, std::string_view line);

  TimestampFormat primary_;
  TimestampFormat current_;
  int32_t startYear_;
  int32_t year_;
  int64_t previousMicros_ = 0;
  bool hasPrevious_ = false;
  // The last line's bytes up to its seconds, and what they mean.
  std::string prefix_;
  bool cacheValid_ = false;
  TimestampFormat cacheFormat_ = TimestampFormat::iso8601;
  detail::SplitTime cache_;
};

}  // namespace quorin::logs
