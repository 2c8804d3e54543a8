// Naming and detection of the timestamp formats: which shape a document's
// lines are written in, judged from a sample of them.
#include <algorithm>
#include <array>

#include "logs/Timestamp.h"

namespace quorin::logs {

std::string_view name(TimestampFormat format) {
  using F = TimestampFormat;
  switch (format) {
    case F::iso8601: return "iso8601";
    case F::rfc5424: return "rfc5424";
    case F::slashDate: return "slash-date";
    case F::accessLog: return "access-log";
    case F::ctime: return "ctime";
    case F::usDate: return "us-date";
    case F::europeanDate: return "european-date";
    case F::epochMillis: return "epoch-millis";
    case F::epochSeconds: return "epoch-seconds";
    case F::syslog: return "syslog";
    case F::glog: return "glog";
    case F::timeOfDay: return "time-of-day";
  }
  return "unknown";
}

std::optional<TimestampFormat> detectTimestampFormat(std::span<const std::string_view> sampleLines) {
  // Any year will do for counting; 2000 is a leap year, so 29 February counts.
  constexpr int32_t kAnyYear = 2000;
  std::array<int64_t, kTimestampFormats.size()> counts{};
  int64_t nonEmpty = 0;
  for (const std::string_view line : sampleLines) {
    if (line.empty() || line == "\r") continue;
    ++nonEmpty;
    for (size_t f = 0; f < kTimestampFormats.size(); ++f)
      if (parseTimestamp(kTimestampFormats[f], line, kAnyYear)) ++counts[f];
  }
  // max_element keeps the first of equal counts: the more specific format.
  const auto best = std::max_element(counts.begin(), counts.end());
  if (*best == 0 || static_cast<double>(*best) < kDetectMinimumShare * static_cast<double>(nonEmpty))
    return std::nullopt;
  return kTimestampFormats[static_cast<size_t>(best - counts.begin())];
}

}  // namespace quorin::logs
