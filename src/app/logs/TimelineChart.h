#pragma once

#include <QPixmap>
#include <QWidget>
#include <cstdint>
#include <memory>
#include <optional>

#include "logs/LogPictures.h"

namespace quorin::app {

// A histogram of a log's messages over time, stacked by level (the most
// severe at the bottom, so that a few errors are not lost on top of many
// infos), with a time axis. Hovering shows a bucket's time range and counts
// per level; a click asks for the bucket's start time; a drag selects a
// range of buckets, which stays drawn until the next click.
//
// The buckets are computed once per data and width (from the log index's
// blocks, not its lines) and the bars kept as a pixmap: a repaint for the
// hover mark or the selection draws that pixmap and a rectangle.
// Thread-safety: GUI thread only.
class TimelineChart : public QWidget {
  Q_OBJECT

 public:
  // The narrowest a bar gets: the bucket count follows the width.
  static constexpr int kMinBarWidth = 4;

  explicit TimelineChart(QWidget* parent = nullptr);

  // The log and, for timestamps with a zone, the offset they are written in
  // (seconds east of UTC): bars then fall on the log's own round hours and
  // times read as the log writes them. Without one, times are shown as the
  // index keeps them.
  void setData(std::shared_ptr<const logs::LogIndexData> data,
               std::optional<int32_t> zoneOffsetSeconds = std::nullopt);
  // The buckets as drawn at the current width.
  const logs::Timeline& timeline();
  // Where the bars are drawn.
  QRect plotRect() const;
  // The bucket under x, when there is one there.
  std::optional<int> bucketAt(int x);
  // The hover text of a bucket: its time range and its messages per level.
  QString describeBucket(int bucket);
  // The selected range of buckets' times, [start, end).
  std::optional<std::pair<int64_t, int64_t>> selection() const { return selection_; }
  void clearSelection();
  QSize sizeHint() const override { return {600, 150}; }

 signals:
  // A click: show the first line at or after this time.
  void timeRequested(qint64 micros);
  // A drag over the buckets from startMicros (inclusive) to endMicros (exclusive).
  void timeRangeSelected(qint64 startMicros, qint64 endMicros);

 protected:
  bool event(QEvent* event) override;
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void leaveEvent(QEvent* event) override;
  void changeEvent(QEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;

 private:
  void invalidate();
  void renderBars();
  bool withDates() const;
  QString emptyText() const;
  int xOfBucket(int bucket) const;
  std::pair<int64_t, int64_t> bucketTimes(int first, int last) const;

  // What to add to the index's times to read them as the log writes them.
  int64_t wallMicros() const { return int64_t{zoneOffset_.value_or(0)} * 1'000'000; }
  QString zoneText() const;

  std::shared_ptr<const logs::LogIndexData> data_;
  std::optional<int32_t> zoneOffset_;
  logs::Timeline timeline_;
  int timelineWidth_ = -1;  // the plot width timeline_ was built for; -1: stale
  QPixmap bars_;            // null when stale
  std::optional<int> hover_;
  std::optional<int> pressBucket_;
  int pressX_ = 0;
  std::optional<int> dragBucket_;
  std::optional<std::pair<int64_t, int64_t>> selection_;
};

}  // namespace quorin::app
