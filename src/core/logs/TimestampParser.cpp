#include "logs/TimestampParser.h"

#include <array>
#include <cstring>
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

bool TimestampParser::parseInto(std::string_view line, LineTime& time) {
  if (!parseWith(current_, line, time)) {
    std::span<const F> others = family(primary_);
    if (others.empty() && current_ != primary_) others = std::span<const F>(&primary_, 1);
    bool found = false;
    for (const F format : others) {
      if (format != current_ && parseWith(format, line, time)) {
        current_ = format;
        found = true;
        break;
      }
    }
    if (!found) return false;
  }
  if (!time.hasYear && time.hasDate) stepYearIfTurned(time, line);
  previousMicros_ = time.micros;
  hasPrevious_ = true;
  return true;
}

// Fields are stored one by one: copying a whole LineTime right after its
// flags were written byte by byte stalls on every line.
bool TimestampParser::parseWith(TimestampFormat format, std::string_view line, LineTime& time) {
  if (cacheValid_ && cacheFormat_ == format && line.size() > prefix_.size() &&
      std::memcmp(line.data(), prefix_.data(), prefix_.size()) == 0) {
    detail::ClockTail tail;
    if (detail::parseClockTail(format, line, prefix_.size(), tail) && tail.meridiem == cache_.tail.meridiem) {
      if (auto micros = detail::combine(cache_.headMicros, cache_.hour, tail)) {
        time.micros = *micros;
        time.zoned = tail.zoned;
        time.hasDate = cache_.time.hasDate;
        time.hasYear = cache_.time.hasYear;
        time.begin = cache_.time.begin;
        time.end = tail.end;
        time.offsetSeconds = tail.offsetMinutes * 60;
        return true;
      }
    }
  }
  return parseFresh(format, line, time);
}

bool TimestampParser::parseFresh(TimestampFormat format, std::string_view line, LineTime& time) {
  if (!splits(format)) {
    const auto parsed = parseTimestamp(format, line, year_);
    if (parsed) time = *parsed;
    return parsed.has_value();
  }
  if (!detail::parseSplit(format, line, year_, cache_, time)) {
    cacheValid_ = false;
    return false;
  }
  cacheFormat_ = format;
  prefix_.assign(line.substr(0, static_cast<size_t>(cache_.secondsPos)));
  cacheValid_ = true;
  cache_.time = time;
  return true;
}

void TimestampParser::stepYearIfTurned(LineTime& time, std::string_view line) {
  if (!hasPrevious_ || time.micros >= previousMicros_ - kDayMicros) return;
  ++year_;
  cacheValid_ = false;
  parseFresh(current_, line, time);
}

}  // namespace quorin::logs
