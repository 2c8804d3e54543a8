#include "logs/LogPictures.h"

#include <algorithm>
#include <cmath>

namespace quorin::logs {
namespace {

constexpr int64_t kSecond = 1'000'000;
constexpr int64_t kMinute = 60 * kSecond;
constexpr int64_t kHour = 60 * kMinute;
constexpr int64_t kDay = 24 * kHour;

// Round widths a reader can take in at a glance; past a year the width
// doubles until the span fits.
constexpr int64_t kBucketWidths[] = {
    kSecond, 5 * kSecond, 10 * kSecond, 30 * kSecond, kMinute,   5 * kMinute, 15 * kMinute,
    kHour,   6 * kHour,   kDay,         7 * kDay,     30 * kDay, 365 * kDay,
};

int64_t floorDiv(int64_t a, int64_t b) {
  const int64_t q = a / b;
  return (a % b != 0 && (a < 0) != (b < 0)) ? q - 1 : q;
}

// The bucket edge at or before `micros`: a multiple of `width` in wall time.
int64_t edgeBefore(int64_t micros, int64_t width, int64_t wallOffset) {
  return floorDiv(micros + wallOffset, width) * width - wallOffset;
}

// Bucket count for [first, last] at `width`.
int64_t bucketsFor(int64_t first, int64_t last, int64_t width, int64_t wallOffset) {
  return floorDiv(last - edgeBefore(first, width, wallOffset), width) + 1;
}

bool timedBlock(const LogBlock& block) { return block.firstMicros != kNoTime; }

}  // namespace

Timeline buildTimeline(const LogIndexData& data, int maxBuckets, int32_t wallOffsetSeconds) {
  Timeline timeline;
  timeline.wallOffsetSeconds = wallOffsetSeconds;
  const int64_t wallOffset = int64_t{wallOffsetSeconds} * kSecond;
  timeline.zoned = data.format == TimestampFormat::epochSeconds ||
                   data.format == TimestampFormat::epochMillis || data.format == TimestampFormat::accessLog;
  if (maxBuckets < 1) return timeline;

  int64_t first = INT64_MAX, last = INT64_MIN;
  for (const LogBlock& block : data.blocks) {
    if (!timedBlock(block)) continue;
    first = std::min(first, block.firstMicros);
    last = std::max(last, block.monotonic ? block.lastMicros : block.firstMicros);
  }
  if (first > last) return timeline;

  int64_t width = kBucketWidths[0];
  for (const int64_t candidate : kBucketWidths) {
    width = candidate;
    if (bucketsFor(first, last, width, wallOffset) <= maxBuckets) break;
  }
  while (bucketsFor(first, last, width, wallOffset) > maxBuckets) width *= 2;
  timeline.bucketMicros = width;
  timeline.startMicros = edgeBefore(first, width, wallOffset);
  timeline.buckets.resize(static_cast<size_t>(bucketsFor(first, last, width, wallOffset)));

  const auto bucketOf = [&](int64_t micros) {
    return static_cast<size_t>((micros - timeline.startMicros) / width);
  };
  for (const LogBlock& block : data.blocks) {
    if (!timedBlock(block)) continue;
    const int64_t from = block.firstMicros;
    const int64_t to = block.monotonic ? block.lastMicros : block.firstMicros;
    const size_t firstBucket = bucketOf(from), lastBucket = bucketOf(to);
    for (size_t slot = 0; slot < kLevelCount; ++slot) {
      const int64_t count = block.messages[slot];
      if (count == 0) continue;
      if (firstBucket == lastBucket) {
        timeline.buckets[firstBucket][slot] += count;
        continue;
      }
      // Spread evenly over [from, to]: each bucket gets the messages whose
      // share of the span ends inside it, so the block's total is kept.
      const double span = static_cast<double>(to - from);
      int64_t given = 0;
      for (size_t bucket = firstBucket; bucket <= lastBucket; ++bucket) {
        const int64_t bucketEnd = timeline.startMicros + static_cast<int64_t>(bucket + 1) * width;
        const int64_t upTo =
            bucket == lastBucket
                ? count
                : static_cast<int64_t>(
                      std::floor(static_cast<double>(count) * static_cast<double>(bucketEnd - from) / span));
        timeline.buckets[bucket][slot] += upTo - given;
        given = upTo;
      }
    }
  }
  return timeline;
}

namespace {

// Messages over the lines before `line`, counting whole blocks exactly and
// the block `line` falls in pro rata; lines past the index count one
// message each.
class MessageCurve {
 public:
  explicit MessageCurve(const LogIndexData& data) : data_(data) {
    prefix_.reserve(data.blocks.size() + 1);
    prefix_.push_back(0);
    for (const LogBlock& block : data.blocks) {
      int64_t total = 0;
      for (const uint32_t count : block.messages) total += count;
      prefix_.push_back(prefix_.back() + total);
    }
  }

  double before(int64_t line) const {
    const auto& blocks = data_.blocks;
    const auto after = std::upper_bound(blocks.begin(), blocks.end(), line,
                                        [](int64_t l, const LogBlock& b) { return l < b.firstLine; });
    if (after == blocks.begin()) return 0;
    const size_t index = static_cast<size_t>(after - blocks.begin()) - 1;
    const LogBlock& block = blocks[index];
    const double base = static_cast<double>(prefix_[index]);
    const double inBlock = static_cast<double>(prefix_[index + 1] - prefix_[index]);
    const int64_t offset = line - block.firstLine;
    if (offset < block.lineCount)
      return base + inBlock * static_cast<double>(offset) / static_cast<double>(block.lineCount);
    return base + inBlock + static_cast<double>(offset - block.lineCount);
  }

 private:
  const LogIndexData& data_;
  std::vector<int64_t> prefix_;
};

int64_t alertsIn(const std::vector<uint32_t>& lines, int64_t from, int64_t to) {
  const auto lower = [&](int64_t line) {
    if (line > int64_t{UINT32_MAX}) return lines.end();
    return std::lower_bound(lines.begin(), lines.end(), static_cast<uint32_t>(line));
  };
  return lower(to) - lower(from);
}

}  // namespace

std::vector<OverviewRow> buildOverview(const LogIndexData& data, int64_t totalLines, int rows) {
  if (rows <= 0) return {};
  std::vector<OverviewRow> out(static_cast<size_t>(rows));
  if (totalLines <= 0) return out;
  const MessageCurve curve(data);
  for (int row = 0; row < rows; ++row) {
    // Rows share the lines evenly; when there are more rows than lines, a
    // row shows the line it falls on.
    const int64_t from = static_cast<int64_t>(static_cast<double>(totalLines) * row / rows);
    int64_t to = static_cast<int64_t>(static_cast<double>(totalLines) * (row + 1) / rows);
    to = std::clamp(to, std::min(from + 1, totalLines), totalLines);
    if (from >= to) continue;
    int64_t errors = 0;
    for (size_t list = 1; list < data.alertLines.size(); ++list)
      errors += alertsIn(data.alertLines[list], from, to);
    const int64_t warnings = alertsIn(data.alertLines[0], from, to);
    // Pro rata message counts can fall below the exact alert counts.
    const double messages =
        std::max(curve.before(to) - curve.before(from), static_cast<double>(errors + warnings));
    if (messages <= 0) continue;
    out[static_cast<size_t>(row)].errors = static_cast<float>(static_cast<double>(errors) / messages);
    out[static_cast<size_t>(row)].warnings = static_cast<float>(static_cast<double>(warnings) / messages);
  }
  return out;
}

}  // namespace quorin::logs
