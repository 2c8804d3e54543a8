#include "app/logs/TimelineAxis.h"

#include <QDateTime>
#include <array>
#include <cstdlib>

namespace quorin::app {
namespace {

constexpr int64_t kSecond = 1'000'000;
constexpr int64_t kMinute = 60 * kSecond;
constexpr int64_t kHour = 60 * kMinute;
constexpr int64_t kDay = 24 * kHour;

// Round steps for ticks, the same family as the timeline's bucket widths.
constexpr std::array<int64_t, 17> kSteps = {
    kSecond, 2 * kSecond, 5 * kSecond, 10 * kSecond, 15 * kSecond, 30 * kSecond,
    kMinute, 2 * kMinute, 5 * kMinute, 10 * kMinute, 15 * kMinute, 30 * kMinute,
    kHour,   3 * kHour,   6 * kHour,   12 * kHour,   kDay};

int64_t floorDiv(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

QDateTime dateTimeOf(int64_t micros) {
  return QDateTime::fromMSecsSinceEpoch(floorDiv(micros, 1000), Qt::UTC);
}

}  // namespace

QString formatTime(int64_t micros, bool withDates) {
  const QDateTime time = dateTimeOf(micros);
  QString text =
      time.toString(withDates ? QStringLiteral("yyyy-MM-dd HH:mm:ss") : QStringLiteral("HH:mm:ss"));
  if (const int64_t fraction = micros - floorDiv(micros, kSecond) * kSecond; fraction != 0)
    text += QStringLiteral(".%1").arg(fraction, 6, 10, QLatin1Char('0'));
  return text;
}

QString formatTimeRange(int64_t startMicros, int64_t endMicros, bool withDates) {
  const bool sameDay = floorDiv(startMicros, kDay) == floorDiv(endMicros, kDay);
  return QStringLiteral("%1 – %2").arg(formatTime(startMicros, withDates),
                                       formatTime(endMicros, withDates && !sameDay));
}

QString formatSpan(int64_t micros) {
  if (micros % kDay == 0) {
    const int64_t days = micros / kDay;
    return days == 1 ? QStringLiteral("1 day") : QStringLiteral("%1 days").arg(days);
  }
  if (micros % kHour == 0) return QStringLiteral("%1 h").arg(micros / kHour);
  if (micros % kMinute == 0) return QStringLiteral("%1 min").arg(micros / kMinute);
  if (micros % kSecond == 0) return QStringLiteral("%1 s").arg(micros / kSecond);
  return QStringLiteral("%1 ms").arg(static_cast<double>(micros) / 1000.0);
}

QString formatZone(int32_t offsetSeconds) {
  if (offsetSeconds == 0) return QStringLiteral("UTC");
  const int32_t minutes = std::abs(offsetSeconds) / 60;
  return QStringLiteral("UTC%1%2:%3")
      .arg(offsetSeconds < 0 ? QLatin1Char('-') : QLatin1Char('+'))
      .arg(minutes / 60, 2, 10, QLatin1Char('0'))
      .arg(minutes % 60, 2, 10, QLatin1Char('0'));
}

std::vector<TimeTick> timeTicks(int64_t startMicros, int64_t endMicros, int64_t bucketMicros, int width,
                                int minSpacing, bool withDates) {
  std::vector<TimeTick> ticks;
  if (endMicros <= startMicros || bucketMicros <= 0 || width <= 0) return ticks;
  const double span = static_cast<double>(endMicros - startMicros);
  const double wanted = span * std::max(minSpacing, 1) / width;
  int64_t step = 0;
  for (const int64_t candidate : kSteps) {
    if (candidate >= wanted && candidate % bucketMicros == 0) {
      step = candidate;
      break;
    }
  }
  if (step == 0) {  // whole days beyond the list, a multiple of the bucket
    const int64_t unit = std::max(kDay, bucketMicros);
    step = unit * std::max<int64_t>(1, static_cast<int64_t>(std::ceil(wanted / static_cast<double>(unit))));
  }
  const bool days = step % kDay == 0;
  for (int64_t t = floorDiv(startMicros + step - 1, step) * step; t < endMicros; t += step) {
    const QDateTime time = dateTimeOf(t);
    QString label;
    if (days || (withDates && t % kDay == 0))
      label =
          withDates ? time.toString(QStringLiteral("yyyy-MM-dd")) : time.toString(QStringLiteral("HH:mm"));
    else if (step % kMinute == 0)
      label = time.toString(QStringLiteral("HH:mm"));
    else
      label = time.toString(QStringLiteral("HH:mm:ss"));
    ticks.push_back({t, label});
  }
  return ticks;
}

}  // namespace quorin::app
