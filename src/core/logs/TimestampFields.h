#pragma once

// Internal to the timestamp parsers: a timestamp split where the seconds
// start, so that a line in the same minute as the previous one re-reads only
// its seconds, fraction and zone.

#include <cstdint>
#include <optional>
#include <string_view>

#include "logs/Timestamp.h"

namespace quorin::logs::detail {

enum class Meridiem : uint8_t { none, am, pm };

// Seconds, fraction and what follows them (zone or AM/PM).
struct ClockTail {
  int64_t micros = 0;  // seconds and fraction
  int32_t end = 0;
  int32_t offsetMinutes = 0;
  bool zoned = false;
  Meridiem meridiem = Meridiem::none;
};

struct SplitTime {
  LineTime time;  // kept by the per-document parser, not filled by parseSplit
  // Microseconds up to the minute (hour as written, zone not applied), and
  // the byte where the seconds start; every byte before it is the prefix a
  // later line must repeat to reuse headMicros.
  int64_t headMicros = 0;
  int32_t secondsPos = 0;
  int hour = 0;
  ClockTail tail;
};

// Out-parameters rather than optionals of these structs: this is the hot
// path of the log index, and building them field by field inside an
// optional costs store-forwarding stalls on every line.
bool parseSplit(TimestampFormat format, std::string_view line, int32_t yearForYearless, SplitTime& split,
                LineTime& time);
bool parseClockTail(TimestampFormat format, std::string_view line, size_t pos, ClockTail& out);
// head + tail, or none when the hour does not fit the tail's AM/PM.
std::optional<int64_t> combine(int64_t headMicros, int hour, const ClockTail& tail);

}  // namespace quorin::logs::detail
