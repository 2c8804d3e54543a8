#include "app/logs/TimelineChart.h"

#include <QHelpEvent>
#include <QLocale>
#include <QMouseEvent>
#include <QPainter>
#include <QToolTip>
#include <algorithm>
#include <cmath>

#include "app/logs/LevelColors.h"
#include "app/logs/TimelineAxis.h"

namespace quorin::app {
namespace {

constexpr int kMargin = 6;
constexpr int kLabelSpacing = 110;  // pixels between time labels at least
constexpr int kDragThreshold = 4;   // pixels before a press becomes a drag

// Bottom to top: the most severe first.
constexpr logs::Level kStackOrder[] = {logs::Level::fatal,   logs::Level::critical, logs::Level::error,
                                       logs::Level::warning, logs::Level::notice,   logs::Level::info,
                                       logs::Level::debug,   logs::Level::trace,    logs::Level::none};

int64_t totalOf(const std::array<int64_t, logs::kLevelCount>& counts) {
  int64_t total = 0;
  for (const int64_t n : counts) total += n;
  return total;
}

QString number(int64_t n) { return QLocale().toString(static_cast<qlonglong>(n)); }

}  // namespace

TimelineChart::TimelineChart(QWidget* parent) : QWidget(parent) {
  setMouseTracking(true);
  setMinimumHeight(90);
  setAttribute(Qt::WA_OpaquePaintEvent);
}

void TimelineChart::setData(std::shared_ptr<const logs::LogIndexData> data,
                            std::optional<int32_t> zoneOffsetSeconds) {
  if (data == data_ && zoneOffsetSeconds == zoneOffset_) return;
  data_ = std::move(data);
  zoneOffset_ = zoneOffsetSeconds;
  invalidate();
}

QString TimelineChart::zoneText() const {
  if (zoneOffset_) return formatZone(*zoneOffset_);
  return timeline_.zoned ? formatZone(0) : QString();
}

void TimelineChart::invalidate() {
  timelineWidth_ = -1;
  bars_ = QPixmap();
  update();
}

void TimelineChart::clearSelection() {
  selection_.reset();
  update();
}

QRect TimelineChart::plotRect() const {
  const int line = fontMetrics().height();
  return QRect(kMargin, line + 6, std::max(1, width() - 2 * kMargin), std::max(1, height() - 2 * line - 12));
}

const logs::Timeline& TimelineChart::timeline() {
  const int plotWidth = plotRect().width();
  if (timelineWidth_ != plotWidth) {
    timeline_ =
        data_ && data_->hasTimes()
            ? logs::buildTimeline(*data_, std::max(1, plotWidth / kMinBarWidth), zoneOffset_.value_or(0))
            : logs::Timeline{};
    timelineWidth_ = plotWidth;
  }
  return timeline_;
}

bool TimelineChart::withDates() const {
  return !(data_ && data_->format == logs::TimestampFormat::timeOfDay);
}

int TimelineChart::xOfBucket(int bucket) const {
  const QRect plot = plotRect();
  const auto count = static_cast<int64_t>(std::max<size_t>(1, timeline_.buckets.size()));
  return plot.left() + static_cast<int>(static_cast<int64_t>(bucket) * plot.width() / count);
}

std::optional<int> TimelineChart::bucketAt(int x) {
  const auto& buckets = timeline().buckets;
  const QRect plot = plotRect();
  if (buckets.empty() || x < plot.left() || x > plot.right()) return std::nullopt;
  const auto count = static_cast<int64_t>(buckets.size());
  return static_cast<int>(
      std::min<int64_t>(count - 1, static_cast<int64_t>(x - plot.left()) * count / plot.width()));
}

std::pair<int64_t, int64_t> TimelineChart::bucketTimes(int first, int last) const {
  return {timeline_.startMicros + first * timeline_.bucketMicros,
          timeline_.startMicros + (last + 1) * timeline_.bucketMicros};
}

QString TimelineChart::describeBucket(int bucket) {
  const auto& buckets = timeline().buckets;
  if (bucket < 0 || static_cast<size_t>(bucket) >= buckets.size()) return {};
  const auto& counts = buckets[static_cast<size_t>(bucket)];
  const auto [start, end] = bucketTimes(bucket, bucket);
  QString text = formatTimeRange(start + wallMicros(), end + wallMicros(), withDates());
  if (const QString zone = zoneText(); !zone.isEmpty()) text += QLatin1Char(' ') + zone;
  const int64_t total = totalOf(counts);
  text += QLatin1Char('\n') + (total == 1 ? tr("1 message") : tr("%1 messages").arg(number(total)));
  for (const logs::Level level : kStackOrder) {
    const int64_t n = counts[logs::levelSlot(level)];
    if (n == 0) continue;
    const QString name =
        level == logs::Level::none ? tr("no level") : QString::fromUtf8(logs::name(level).data());
    text += QStringLiteral("\n%1: %2").arg(name, number(n));
  }
  return text;
}

QString TimelineChart::emptyText() const {
  if (!data_ || (!data_->complete && !data_->hasTimes())) return tr("Reading the log's times…");
  return tr("No timestamps recognized in this document");
}

void TimelineChart::renderBars() {
  const qreal ratio = devicePixelRatioF();
  bars_ = QPixmap(size() * ratio);
  bars_.setDevicePixelRatio(ratio);
  bars_.fill(palette().color(QPalette::Base));
  QPainter painter(&bars_);
  const auto& buckets = timeline().buckets;
  const QRect plot = plotRect();
  const QColor text = palette().color(QPalette::Text);
  QColor faint = text;
  faint.setAlphaF(0.55f);
  if (buckets.empty()) {
    painter.setPen(faint);
    painter.drawText(rect(), Qt::AlignCenter, emptyText());
    return;
  }
  int64_t peak = 1;
  for (const auto& counts : buckets) peak = std::max(peak, totalOf(counts));
  std::array<QColor, logs::kLevelCount> colors;
  for (const logs::Level level : kStackOrder) colors[logs::levelSlot(level)] = pictureColor(level, palette());
  for (size_t b = 0; b < buckets.size(); ++b) {
    const int left = xOfBucket(static_cast<int>(b));
    const int right = xOfBucket(static_cast<int>(b) + 1);
    // A gap between bars once they are wide enough to afford one.
    const int barWidth = std::max(1, right - left - (right - left >= 4 ? 1 : 0));
    double below = 0;  // count stacked so far
    int top = plot.bottom() + 1;
    for (const logs::Level level : kStackOrder) {
      const int64_t n = buckets[b][logs::levelSlot(level)];
      if (n == 0) continue;
      below += static_cast<double>(n);
      // Every non-empty level shows at least one pixel.
      const int y = std::min(
          top - 1, plot.bottom() + 1 -
                       static_cast<int>(std::lround(below * plot.height() / static_cast<double>(peak))));
      painter.fillRect(QRect(left, y, barWidth, top - y), colors[logs::levelSlot(level)]);
      top = y;
    }
  }
  // Axis: a base line, ticks and labels.
  QColor axis = text;
  axis.setAlphaF(0.35f);
  painter.setPen(axis);
  painter.drawLine(plot.left(), plot.bottom() + 1, plot.right(), plot.bottom() + 1);
  const int64_t end = timeline_.startMicros + static_cast<int64_t>(buckets.size()) * timeline_.bucketMicros;
  const auto span = static_cast<double>(end - timeline_.startMicros);
  const int labelTop = plot.bottom() + 4;
  int lastLabelRight = INT32_MIN;
  const int64_t wall = wallMicros();  // ticks fall on the log's own round times
  for (const TimeTick& tick : timeTicks(timeline_.startMicros + wall, end + wall, timeline_.bucketMicros,
                                        plot.width(), kLabelSpacing, withDates())) {
    const int x =
        plot.left() + static_cast<int>(static_cast<double>(tick.micros - wall - timeline_.startMicros) /
                                       span * plot.width());
    const int labelWidth = fontMetrics().horizontalAdvance(tick.label);
    const int labelLeft = std::clamp(x - labelWidth / 2, 0, std::max(0, width() - labelWidth));
    painter.setPen(axis);
    painter.drawLine(x, plot.bottom() + 1, x, plot.bottom() + 3);
    if (labelLeft <= lastLabelRight + 8) continue;
    painter.setPen(faint);
    painter.drawText(QPoint(labelLeft, labelTop + fontMetrics().ascent()), tick.label);
    lastLabelRight = labelLeft + labelWidth;
  }
  // Caption: the bucket width and the tallest bar's count.
  QString caption =
      tr("Messages per %1 · tallest bar %2").arg(formatSpan(timeline_.bucketMicros), number(peak));
  if (const QString zone = zoneText(); !zone.isEmpty()) caption += tr(" · times in %1").arg(zone);
  if (!data_->complete) caption += tr(" · reading…");
  painter.setPen(faint);
  painter.drawText(QPoint(kMargin, 3 + fontMetrics().ascent()), caption);
}

void TimelineChart::paintEvent(QPaintEvent*) {
  if (bars_.isNull() || bars_.size() != size() * devicePixelRatioF() || timelineWidth_ != plotRect().width())
    renderBars();
  QPainter painter(this);
  painter.drawPixmap(0, 0, bars_);
  if (timeline_.buckets.empty()) return;
  const QRect plot = plotRect();
  QColor mark = palette().color(QPalette::Highlight);
  if (selection_ || (pressBucket_ && dragBucket_)) {
    int64_t start = 0, end = 0;
    if (pressBucket_ && dragBucket_) {
      std::tie(start, end) =
          bucketTimes(std::min(*pressBucket_, *dragBucket_), std::max(*pressBucket_, *dragBucket_));
    } else {
      std::tie(start, end) = *selection_;
    }
    const auto span =
        static_cast<double>(timeline_.buckets.size()) * static_cast<double>(timeline_.bucketMicros);
    auto xOf = [&](int64_t t) {
      return plot.left() + static_cast<int>(std::lround(static_cast<double>(t - timeline_.startMicros) /
                                                        span * plot.width()));
    };
    const QRect band(QPoint(xOf(start), plot.top()), QPoint(xOf(end) - 1, plot.bottom()));
    mark.setAlphaF(0.16f);
    painter.fillRect(band, mark);
    mark.setAlphaF(0.8f);
    painter.setPen(mark);
    painter.drawLine(band.topLeft(), band.bottomLeft());
    painter.drawLine(band.topRight(), band.bottomRight());
  }
  if (hover_) {
    QColor over = palette().color(QPalette::Text);
    over.setAlphaF(0.08f);
    painter.fillRect(
        QRect(QPoint(xOfBucket(*hover_), plot.top()), QPoint(xOfBucket(*hover_ + 1) - 1, plot.bottom())),
        over);
  }
}

bool TimelineChart::event(QEvent* event) {
  if (event->type() == QEvent::ToolTip) {
    auto* help = static_cast<QHelpEvent*>(event);
    const auto bucket = bucketAt(help->pos().x());
    if (bucket && plotRect().adjusted(0, 0, 0, 4).contains(help->pos())) {
      QToolTip::showText(help->globalPos(), describeBucket(*bucket), this);
    } else {
      QToolTip::hideText();
      event->ignore();
    }
    return true;
  }
  return QWidget::event(event);
}

void TimelineChart::mousePressEvent(QMouseEvent* event) {
  const auto bucket = bucketAt(static_cast<int>(event->position().x()));
  if (event->button() != Qt::LeftButton || !bucket) return QWidget::mousePressEvent(event);
  pressBucket_ = bucket;
  dragBucket_.reset();
  pressX_ = static_cast<int>(event->position().x());
}

void TimelineChart::mouseMoveEvent(QMouseEvent* event) {
  const int x = static_cast<int>(event->position().x());
  const auto bucket = bucketAt(x);
  if (bucket != hover_) {
    hover_ = bucket;
    update();
  }
  if (!pressBucket_ || !(event->buttons() & Qt::LeftButton)) return;
  if (!dragBucket_ && std::abs(x - pressX_) < kDragThreshold) return;
  const QRect plot = plotRect();
  const auto clamped = bucketAt(std::clamp(x, plot.left(), plot.right()));
  if (clamped && clamped != dragBucket_) {
    dragBucket_ = clamped;
    update();
  }
}

void TimelineChart::mouseReleaseEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton || !pressBucket_) return QWidget::mouseReleaseEvent(event);
  const int first = *pressBucket_;
  const std::optional<int> last = dragBucket_;
  pressBucket_.reset();
  dragBucket_.reset();
  if (!last) {
    selection_.reset();
    update();
    emit timeRequested(bucketTimes(first, first).first);
    return;
  }
  const auto range = bucketTimes(std::min(first, *last), std::max(first, *last));
  selection_ = range;
  update();
  emit timeRangeSelected(range.first, range.second);
}

void TimelineChart::leaveEvent(QEvent* event) {
  if (hover_) {
    hover_.reset();
    update();
  }
  QWidget::leaveEvent(event);
}

void TimelineChart::changeEvent(QEvent* event) {
  if (event->type() == QEvent::PaletteChange || event->type() == QEvent::FontChange ||
      event->type() == QEvent::StyleChange)
    invalidate();
  QWidget::changeEvent(event);
}

void TimelineChart::resizeEvent(QResizeEvent* event) {
  bars_ = QPixmap();
  QWidget::resizeEvent(event);
}

}  // namespace quorin::app
