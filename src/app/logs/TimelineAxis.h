#pragma once

#include <QString>
#include <cstdint>
#include <vector>

namespace quorin::app {

// Time labels for the timeline: where the axis ticks go and how times read.
// Times are wall times in microseconds since 1970-01-01 (the chart adds a
// zoned log's own offset to the index's UTC times first), shown as they are.
struct TimeTick {
  int64_t micros = 0;
  QString label;
};

// Ticks over [startMicros, endMicros) at a round step that is a multiple of
// `bucketMicros` and leaves at least `minSpacing` of `width` between labels
// (both in pixels). `withDates`: the log's timestamps carry a date.
std::vector<TimeTick> timeTicks(int64_t startMicros, int64_t endMicros, int64_t bucketMicros, int width,
                                int minSpacing, bool withDates);

// "2026-03-20 12:00:05" (a fraction only when the time has one); without the
// date for a log of times of day alone.
QString formatTime(int64_t micros, bool withDates);
// "2026-03-20 12:00:00 – 12:05:00": the end without its date on the same day.
QString formatTimeRange(int64_t startMicros, int64_t endMicros, bool withDates);
// "1 s", "5 min", "1 h", "1 day", "7 days".
QString formatSpan(int64_t micros);
// "UTC", "UTC+05:30", "UTC-07:00".
QString formatZone(int32_t offsetSeconds);

}  // namespace quorin::app
