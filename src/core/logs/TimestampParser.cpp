#include "logs/TimestampParser.h"

#include <array>
#include <span>

namespace quorin::logs {
namespace {

using F = TimestampFormat;

constexpr int64_t kDayMicros = int64_t{86'400} * 1'000'000;

// The formats tried after the primary one when it does not match a line:
// shapes that share one log (a syslog daemon writing both RFC 3164 and RFC
// 5424, epoch seconds next to milliseconds).
std::span<const F> family(F primary) {
  static constexpr std::array<F, 2> kIso{F::iso8601, F::rfc5424};
  static constexpr std::array<F, 2> kSyslog{F::syslog, F::rfc5424};
  static constexpr std::array<F, 3> kRfc5424{F::rfc5424, F::iso8601, F::syslog};
  static constexpr std::array<F, 2> kEpoch{F::epochSeconds, F::epochMillis};
  static constexpr std::array<F, 2> kEpochMillis{F::epochMillis, F::epochSeconds};
  switch (primary) {
    case F::iso8601: return kIso;
    case F::syslog: return kSyslog;
    case F::rfc5424: return kRfc5424;
    case F::epochSeconds: return kEpoch;
    case F::epochMillis: return kEpochMillis;
    default: return {};
  }
}

bool splits(F format) {
  return format != F::accessLog && format != F::epochSeconds && format != F::epochMillis &&
         format != F::ctime;
}

}  // namespace

TimestampParser::TimestampParser(TimestampFormat primary, int32_t yearForYearless)
    : primary_(primary), current_(primary), startYear_(yearForYearless), year_(yearForYearless) {}

std::optional<LineTime> TimestampParser::parse(std::string_view line) {
  if (auto time = parseWith(current_, line)) return time;
  std::span<const F> others = family(primary_);
  if (others.empty()) {
    if (current_ == primary_) return std::nullopt;
    others = std::span<const F>(&primary_, 1);
  }
  for (const F format : others) {
    if (format == current_) continue;
    if (auto time = parseWith(format, line)) {
      current_ = format;
      return time;
    }
  }
  return std::nullopt;
}

std::optional<LineTime> TimestampParser::parseWith(TimestampFormat format, std::string_view line) {
  if (cacheValid_ && cacheFormat_ == format && line.size() > prefix_.size() &&
      line.compare(0, prefix_.size(), prefix_) == 0) {
    if (auto tail = detail::parseClockTail(format, line, prefix_.size())) {
      if (tail->meridiem == cache_.tail.meridiem) {
        if (auto micros = detail::combine(cache_.headMicros, cache_.hour, *tail)) {
          LineTime time = cache_.time;
          time.micros = *micros;
          time.zoned = tail->zoned;
          time.end = tail->end;
          return stepYearIfTurned(format, line, time);
        }
      }
    }
  }
  auto time = parseFresh(format, line);
  if (!time) return std::nullopt;
  return stepYearIfTurned(format, line, *time);
}

std::optional<LineTime> TimestampParser::parseFresh(TimestampFormat format, std::string_view line) {
  if (!splits(format)) return parseTimestamp(format, line, year_);
  auto split = detail::parseSplit(format, line, year_);
  if (!split) return std::nullopt;
  cache_ = *split;
  cacheFormat_ = format;
  prefix_.assign(line.substr(0, static_cast<size_t>(split->secondsPos)));
  cacheValid_ = true;
  return split->time;
}

std::optional<LineTime> TimestampParser::stepYearIfTurned(TimestampFormat format, std::string_view line,
                                                          LineTime time) {
  if (!time.hasYear && time.hasDate && previousMicros_ && time.micros < *previousMicros_ - kDayMicros) {
    ++year_;
    cacheValid_ = false;
    if (auto again = parseFresh(format, line)) time = *again;
  }
  previousMicros_ = time.micros;
  return time;
}

}  // namespace quorin::logs
