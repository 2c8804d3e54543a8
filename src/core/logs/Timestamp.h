#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace quorin::logs {

// The timestamp shapes recognised at the start of a log line. Ordered from
// the most specific (a date with its year) to the least (a time of day
// alone): detection breaks ties in this order.
enum class TimestampFormat : uint8_t {
  iso8601,       // 2026-11-23T10:00:00.123456+05:30, blank for T, ',' for '.', Z, ±hhmm
  rfc5424,       // <34>1 2026-11-23T10:00:00.123Z host app …
  slashDate,     // 2026/11/23 10:00:00
  accessLog,     // … [10/Oct/2026:13:55:36 -0700] … within the first 128 bytes
  ctime,         // Mon Nov 23 10:00:00 2026
  usDate,        // 11/23/2026 10:00:00 AM, or 24-hour without AM/PM
  europeanDate,  // 23.11.2026 10:00:00
  epochMillis,   // 1795428000123 (13 digits)
  epochSeconds,  // 1795428000 (10 digits), optionally .fraction
  syslog,        // Nov 23 10:00:00 (no year)
  glog,          // I1123 10:00:00.123456 (no year)
  timeOfDay,     // 10:00:00.123 (no date)
};

inline constexpr std::array kTimestampFormats = {
    TimestampFormat::iso8601,      TimestampFormat::rfc5424,     TimestampFormat::slashDate,
    TimestampFormat::accessLog,    TimestampFormat::ctime,       TimestampFormat::usDate,
    TimestampFormat::europeanDate, TimestampFormat::epochMillis, TimestampFormat::epochSeconds,
    TimestampFormat::syslog,       TimestampFormat::glog,        TimestampFormat::timeOfDay,
};

// A short stable name ("iso8601", "syslog", …) for the command line and logs.
std::string_view name(TimestampFormat format);

struct LineTime {
  // Microseconds since 1970-01-01T00:00 of the time as written (wall time),
  // or of UTC when the timestamp carries a zone (epoch numbers always do).
  // A time of day alone counts from midnight of 1970-01-01.
  int64_t micros = 0;
  bool zoned = false;
  bool hasDate = false;
  bool hasYear = false;
  // Byte span of the timestamp in the line (brackets and priority excluded).
  int32_t begin = 0, end = 0;
  // The zone's offset east of UTC as written (+05:30 is 19800); 0 for Z,
  // epoch numbers and times without a zone. micros + offsetSeconds is the
  // wall time the line shows.
  int32_t offsetSeconds = 0;
  bool operator==(const LineTime&) const = default;
};

// The timestamp of `line` in `format`, or none. The timestamp must start the
// line, after an optional '[' or "<N>" syslog priority; the access-log shape
// may start anywhere in the first 128 bytes. Yearless formats take
// `yearForYearless`. Out-of-range fields (31 February, hour 24, year 0000)
// refuse the line. Only the first few hundred bytes of the line are read.
std::optional<LineTime> parseTimestamp(TimestampFormat format, std::string_view line,
                                       int32_t yearForYearless);

// The format that parses the most of `sampleLines`, ties going to the more
// specific format; none when it parses fewer than kDetectMinimumShare of the
// non-empty lines.
inline constexpr double kDetectMinimumShare = 0.10;
std::optional<TimestampFormat> detectTimestampFormat(std::span<const std::string_view> sampleLines);

// Days from 1970-01-01 to a proleptic Gregorian date; the day may run past
// the month's end (32 January is 1 February).
int64_t daysFromCivil(int64_t year, int month, int day);

// The date `days` after 1970-01-01: the inverse of daysFromCivil.
struct CivilDate {
  int64_t year = 1970;
  int month = 1;
  int day = 1;
};
CivilDate civilFromDays(int64_t days);

}  // namespace quorin::logs
