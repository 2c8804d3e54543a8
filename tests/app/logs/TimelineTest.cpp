#include <gtest/gtest.h>

#include <QApplication>
#include <QMouseEvent>
#include <QSignalSpy>

#include "app/find/PanelTestSupport.h"
#include "app/logs/TimelineAxis.h"
#include "app/logs/TimelineChart.h"
#include "app/logs/TimelinePanel.h"

namespace quorin::app {
namespace {

using logs::Level;

constexpr int64_t kSecond = 1'000'000;
const int64_t kNoon = logs::daysFromCivil(2026, 3, 20) * 86400 * kSecond + 12 * 3600 * kSecond;

logs::LogBlock block(int64_t firstLine, int64_t micros, uint32_t info, Level other = Level::none,
                     uint32_t others = 0) {
  logs::LogBlock b;
  b.firstLine = firstLine;
  b.lineCount = 100;
  b.firstMicros = b.lastMicros = b.maxMicros = micros;
  b.messages[logs::levelSlot(Level::info)] = info;
  b.messages[logs::levelSlot(other)] += others;
  return b;
}

// Three blocks at noon, 30 s and 2 min past.
std::shared_ptr<logs::LogIndexData> threeBlocks() {
  auto data = std::make_shared<logs::LogIndexData>();
  data->format = logs::TimestampFormat::iso8601;
  data->blocks = {block(0, kNoon, 90, Level::error, 10),
                  block(100, kNoon + 30 * kSecond, 95, Level::warning, 5),
                  block(200, kNoon + 120 * kSecond, 50)};
  data->linesIndexed = data->timedLines = 300;
  data->complete = true;
  return data;
}

void mouse(QWidget& widget, QEvent::Type type, int x, Qt::MouseButtons buttons) {
  const QPointF at(x, widget.height() / 2);
  QMouseEvent event(type, at, widget.mapToGlobal(at),
                    type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton, buttons, Qt::NoModifier);
  QApplication::sendEvent(&widget, &event);
}

TEST(TimelineTest, BucketsFollowTheWidthAndDescribeTheirMessages) {
  TimelineChart chart;
  chart.resize(412, 160);
  chart.setData(threeBlocks());
  ASSERT_EQ(chart.plotRect().width(), 400);  // at most 100 bars: 5 s buckets over 2 min
  const logs::Timeline& timeline = chart.timeline();
  EXPECT_EQ(timeline.bucketMicros, 5 * kSecond);
  EXPECT_EQ(timeline.startMicros, kNoon);
  ASSERT_EQ(timeline.buckets.size(), 25u);
  EXPECT_EQ(timeline.buckets[6][logs::levelSlot(Level::warning)], 5);

  EXPECT_EQ(chart.bucketAt(chart.plotRect().left() + 6 * 16 + 3), 6);
  EXPECT_EQ(chart.bucketAt(chart.plotRect().right()), 24);
  EXPECT_EQ(chart.bucketAt(0), std::nullopt);
  EXPECT_EQ(chart.describeBucket(6), "2026-03-20 12:00:30 – 12:00:35\n100 messages\nwarning: 5\ninfo: 95");
  EXPECT_EQ(chart.describeBucket(1), "2026-03-20 12:00:05 – 12:00:10\n0 messages");
  // Written at +05:30: the same bars, read in the log's own time.
  chart.setData(threeBlocks(), 19800);
  EXPECT_EQ(chart.timeline().startMicros, kNoon);
  EXPECT_EQ(chart.describeBucket(6),
            "2026-03-20 17:30:30 – 17:30:35 UTC+05:30\n100 messages\nwarning: 5\ninfo: 95");

  chart.setData(threeBlocks());
  chart.resize(92, 160);  // at most 20 bars: 10 s buckets
  EXPECT_EQ(chart.timeline().bucketMicros, 10 * kSecond);
  EXPECT_EQ(chart.describeBucket(0), "2026-03-20 12:00:00 – 12:00:10\n100 messages\nerror: 10\ninfo: 90");

  chart.setData(std::make_shared<logs::LogIndexData>());
  EXPECT_TRUE(chart.timeline().buckets.empty());
  EXPECT_EQ(chart.bucketAt(100), std::nullopt);
}

TEST(TimelineTest, ClickAsksForTheBucketStartAndDragSelectsARange) {
  TimelinePanel panel;
  TimelineChart& chart = *panel.chart();
  chart.resize(412, 160);
  panel.setData(threeBlocks());
  QSignalSpy times(&panel, &TimelinePanel::timeRequested);
  QSignalSpy ranges(&panel, &TimelinePanel::timeRangeSelected);
  const int left = chart.plotRect().left();

  mouse(chart, QEvent::MouseButtonPress, left + 6 * 16 + 8, Qt::LeftButton);
  mouse(chart, QEvent::MouseMove, left + 6 * 16 + 10, Qt::LeftButton);  // a tremble, not a drag
  mouse(chart, QEvent::MouseButtonRelease, left + 6 * 16 + 10, Qt::NoButton);
  ASSERT_EQ(times.size(), 1);
  EXPECT_EQ(times.at(0).at(0).toLongLong(), kNoon + 30 * kSecond);

  // From bucket 8 back to bucket 2, and on past the left edge: buckets 0–8.
  mouse(chart, QEvent::MouseButtonPress, left + 8 * 16 + 1, Qt::LeftButton);
  mouse(chart, QEvent::MouseMove, left + 2 * 16 + 1, Qt::LeftButton);
  mouse(chart, QEvent::MouseMove, 0, Qt::LeftButton);
  mouse(chart, QEvent::MouseButtonRelease, 0, Qt::NoButton);
  ASSERT_EQ(ranges.size(), 1);
  EXPECT_EQ(ranges.at(0).at(0).toLongLong(), kNoon);
  EXPECT_EQ(ranges.at(0).at(1).toLongLong(), kNoon + 45 * kSecond);
  EXPECT_EQ(chart.selection(), std::make_pair(kNoon, kNoon + 45 * kSecond));
  EXPECT_EQ(times.size(), 1);

  // A click goes there and drops the selection.
  mouse(chart, QEvent::MouseButtonPress, chart.plotRect().right(), Qt::LeftButton);
  mouse(chart, QEvent::MouseButtonRelease, chart.plotRect().right(), Qt::NoButton);
  EXPECT_EQ(times.at(1).at(0).toLongLong(), kNoon + 120 * kSecond);
  EXPECT_EQ(chart.selection(), std::nullopt);
}

TEST(TimelineTest, AxisLabelsAreRoundAndShowTheDateAtMidnight) {
  std::vector<QString> labels;
  for (const TimeTick& tick : timeTicks(kNoon, kNoon + 125 * kSecond, 5 * kSecond, 400, 110, true))
    labels.push_back(tick.label);
  EXPECT_EQ(labels, (std::vector<QString>{"12:00", "12:01", "12:02"}));

  labels.clear();
  const int64_t evening = kNoon + 10 * 3600 * kSecond;  // 22:00
  for (const TimeTick& tick :
       timeTicks(evening, evening + 6 * 3600 * kSecond, 3600 * kSecond, 400, 110, true))
    labels.push_back(tick.label);
  EXPECT_EQ(labels, (std::vector<QString>{"2026-03-21", "03:00"}));

  EXPECT_EQ(formatTimeRange(evening + 7195 * kSecond, evening + 7200 * kSecond, true),
            "2026-03-20 23:59:55 – 2026-03-21 00:00:00");
  EXPECT_EQ(formatTime(kNoon + 1500, false), "12:00:00.001500");
  EXPECT_EQ(formatSpan(300 * kSecond), "5 min");
  EXPECT_EQ(formatSpan(86400 * kSecond), "1 day");
  EXPECT_EQ(formatZone(-7 * 3600), "UTC-07:00");
}

}  // namespace
}  // namespace quorin::app
