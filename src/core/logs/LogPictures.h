#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "logs/LogIndexData.h"

namespace quorin::logs {

// A histogram of messages over time, stacked by level: the timeline panel's
// data. Buckets have a round width chosen from the log's span (1 s, 5 s,
// 10 s, 30 s, 1 min, 5 min, 15 min, 1 h, 6 h, 1 day, …) so that there are at
// most `maxBuckets`. A block's messages are spread evenly over its time span
// (the index keeps no time per line); blocks whose times are not monotonic
// count at their first time. Bucket edges fall on round wall-clock times at
// `wallOffsetSeconds` east of UTC: pass the offset zoned timestamps are
// written in (LineTime::offsetSeconds of a message, e.g. messageAt's), so
// that hour buckets of a +05:30 log start on its own hours.
struct Timeline {
  int64_t startMicros = 0;   // start of the first bucket, in the index's terms (UTC for zoned times)
  int64_t bucketMicros = 0;  // width of every bucket
  std::vector<std::array<int64_t, kLevelCount>> buckets;
  // Times are UTC, as far as the format alone tells (epoch numbers, access
  // logs); ISO times may carry a zone too, which only a parsed line shows.
  bool zoned = false;
  int32_t wallOffsetSeconds = 0;  // as passed: startMicros + this is the wall time of the first edge
};
Timeline buildTimeline(const LogIndexData& data, int maxBuckets, int32_t wallOffsetSeconds = 0);

// The overview strip beside the scroll bar: for each of `rows` pixel rows
// (rows share the document's lines evenly), the share of the row's messages
// at error or above and at warning, 0…1. Lines not indexed yet count as none.
struct OverviewRow {
  float errors = 0;
  float warnings = 0;
};
std::vector<OverviewRow> buildOverview(const LogIndexData& data, int64_t totalLines, int rows);

}  // namespace quorin::logs
