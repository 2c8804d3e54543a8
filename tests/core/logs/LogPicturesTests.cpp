#include <gtest/gtest.h>

#include "logs/LogPictures.h"

namespace quorin::logs {
namespace {

constexpr int64_t kSecond = 1'000'000;

LogBlock block(int64_t firstLine, int64_t lineCount, int64_t firstMicros, int64_t lastMicros, uint32_t info,
               uint32_t errors = 0, bool monotonic = true) {
  LogBlock b;
  b.firstLine = firstLine;
  b.lineCount = lineCount;
  b.firstMicros = firstMicros;
  b.lastMicros = b.maxMicros = lastMicros;
  b.monotonic = monotonic;
  b.messages[levelSlot(Level::info)] = info;
  b.messages[levelSlot(Level::error)] = errors;
  return b;
}

int64_t total(const Timeline& timeline, Level level) {
  int64_t sum = 0;
  for (const auto& bucket : timeline.buckets) sum += bucket[levelSlot(level)];
  return sum;
}

TEST(LogPicturesTest, TimelineSpreadsBlocksOverRoundBuckets) {
  LogIndexData data;
  data.format = TimestampFormat::iso8601;
  // 10 info messages over 0…99 s, then 7 at one instant, then a block whose
  // times jump back (counted at its first time), then a block without times.
  data.blocks = {
      block(0, 10, 1000 * kSecond, 1099 * kSecond, 10), block(10, 7, 1100 * kSecond, 1100 * kSecond, 5, 2),
      block(17, 4, 1050 * kSecond, 1010 * kSecond, 4, 0, false), block(21, 3, kNoTime, kNoTime, 3)};

  const Timeline coarse = buildTimeline(data, 20);
  EXPECT_EQ(coarse.bucketMicros, 10 * kSecond);  // 101 s in at most 20 buckets
  EXPECT_EQ(coarse.startMicros, 1000 * kSecond);
  ASSERT_EQ(coarse.buckets.size(), 11u);
  EXPECT_EQ(coarse.buckets[0][levelSlot(Level::info)], 1);
  EXPECT_EQ(coarse.buckets[5][levelSlot(Level::info)], 1 + 4);
  EXPECT_EQ(coarse.buckets[10][levelSlot(Level::info)], 5);
  EXPECT_EQ(coarse.buckets[10][levelSlot(Level::error)], 2);
  EXPECT_EQ(total(coarse, Level::info), 10 + 5 + 4);
  EXPECT_FALSE(coarse.zoned);

  const Timeline fine = buildTimeline(data, 1000);
  EXPECT_EQ(fine.bucketMicros, kSecond);
  EXPECT_EQ(fine.buckets.size(), 101u);
  EXPECT_EQ(total(fine, Level::info), 19);

  // Hour buckets of a +05:30 log start on its own hours.
  const int64_t halfPast = 3600 * kSecond * 24 * 100 + 1800 * kSecond;  // 00:30 UTC, 06:00 at +05:30
  LogIndexData zoned;
  zoned.blocks = {block(0, 4, halfPast - 3600 * kSecond, halfPast + 5 * 3600 * kSecond, 4)};
  const Timeline hours = buildTimeline(zoned, 8, 19'800);
  EXPECT_EQ(hours.bucketMicros, 3600 * kSecond);
  EXPECT_EQ(hours.startMicros, halfPast - 3600 * kSecond);
  EXPECT_EQ(hours.buckets.size(), 7u);

  // A span of centuries still fits, in widths of whole years and more.
  data.blocks.push_back(block(24, 1, kSecond * 86400 * 365 * 300, kSecond * 86400 * 365 * 300, 1));
  const Timeline wide = buildTimeline(data, 50);
  EXPECT_LE(wide.buckets.size(), 50u);
  EXPECT_EQ(total(wide, Level::info), 20);
}

TEST(LogPicturesTest, TimelineOfNoTimesIsEmpty) {
  LogIndexData data;
  data.blocks = {block(0, 5, kNoTime, kNoTime, 5)};
  EXPECT_TRUE(buildTimeline(data, 100).buckets.empty());
  EXPECT_TRUE(buildTimeline(LogIndexData{}, 100).buckets.empty());
  data.blocks[0].firstMicros = data.blocks[0].lastMicros = -5 * kSecond;  // before 1970
  const Timeline one = buildTimeline(data, 0);
  EXPECT_TRUE(one.buckets.empty());
  const Timeline before = buildTimeline(data, 3);
  ASSERT_EQ(before.buckets.size(), 1u);
  EXPECT_EQ(before.startMicros, -5 * kSecond);
}

TEST(LogPicturesTest, OverviewSharesAlertsPerRow) {
  LogIndexData data;
  // 100 lines, one message each; errors on lines 0 and 1, a warning on 60.
  data.blocks = {block(0, 50, 0, 0, 48, 2), block(50, 50, 0, 0, 49)};
  data.blocks[1].messages[levelSlot(Level::warning)] = 1;
  data.alertLines[1] = {0, 1};
  data.alertLines[0] = {60};
  const auto rows = buildOverview(data, 100, 4);
  ASSERT_EQ(rows.size(), 4u);
  EXPECT_FLOAT_EQ(rows[0].errors, 2.0f / 25);
  EXPECT_FLOAT_EQ(rows[0].warnings, 0);
  EXPECT_FLOAT_EQ(rows[1].errors, 0);
  EXPECT_FLOAT_EQ(rows[2].warnings, 1.0f / 25);

  // More rows than lines: each row shows the line it falls on.
  const auto tall = buildOverview(data, 100, 1000);
  EXPECT_FLOAT_EQ(tall[0].errors, 1);
  EXPECT_FLOAT_EQ(tall[15].errors, 1);
  EXPECT_FLOAT_EQ(tall[25].errors, 0);
  EXPECT_FLOAT_EQ(tall[605].warnings, 1);

  // Lines past the index count as messages without a level.
  const auto longer = buildOverview(data, 200, 2);
  EXPECT_FLOAT_EQ(longer[0].errors, 2.0f / 100);
  EXPECT_FLOAT_EQ(longer[1].errors, 0);
  EXPECT_TRUE(buildOverview(data, 0, 3)[0].errors == 0);
  EXPECT_TRUE(buildOverview(data, 100, 0).empty());
}

}  // namespace
}  // namespace quorin::logs
