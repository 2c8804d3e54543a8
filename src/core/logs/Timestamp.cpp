#include "logs/Timestamp.h"

#include "logs/GoToTarget.h"
#include "logs/TimestampFields.h"

namespace quorin::logs {
namespace {

using detail::ClockTail;
using detail::Meridiem;
using detail::SplitTime;

constexpr int64_t kMicrosPerSecond = 1'000'000;
constexpr int64_t kMicrosPerMinute = 60 * kMicrosPerSecond;
constexpr int64_t kMicrosPerDay = 86'400 * kMicrosPerSecond;
constexpr size_t kAccessLogWindow = 128;
// Epoch numbers at or below this many seconds (1979) are counters, ids or
// sizes rather than times.
constexpr int64_t kEpochMinimumSeconds = 300'000'000;

bool isDigit(char c) { return c >= '0' && c <= '9'; }
char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }
bool isAlnum(char c) { return isDigit(c) || (lower(c) >= 'a' && lower(c) <= 'z'); }

// A read position over the line; every read checks the bound.
struct Cursor {
  std::string_view s;
  size_t i = 0;

  bool at(char c) const { return i < s.size() && s[i] == c; }
  bool eat(char c) {
    if (!at(c)) return false;
    ++i;
    return true;
  }
  bool digitAt(size_t k) const { return i + k < s.size() && isDigit(s[i + k]); }
  // Exactly n digits.
  bool fixed(int n, int& out) {
    int value = 0;
    for (int k = 0; k < n; ++k) {
      if (!digitAt(static_cast<size_t>(k))) return false;
      value = value * 10 + (s[i + static_cast<size_t>(k)] - '0');
    }
    i += static_cast<size_t>(n);
    out = value;
    return true;
  }
  // One or two digits.
  bool upToTwo(int& out) {
    if (!digitAt(0)) return false;
    return digitAt(1) ? fixed(2, out) : fixed(1, out);
  }
  // Index 1…12 of a three-letter English month name, any case.
  bool monthName(int& out) {
    static constexpr std::string_view kMonths = "janfebmaraprmayjunjulaugsepoctnovdec";
    if (i + 3 > s.size()) return false;
    for (int m = 0; m < 12; ++m) {
      const size_t at = static_cast<size_t>(m) * 3;
      if (lower(s[i]) == kMonths[at] && lower(s[i + 1]) == kMonths[at + 1] &&
          lower(s[i + 2]) == kMonths[at + 2]) {
        i += 3;
        out = m + 1;
        return true;
      }
    }
    return false;
  }
  bool weekdayName() {
    static constexpr std::string_view kDays = "sunmontuewedthufrisat";
    if (i + 3 > s.size()) return false;
    for (size_t d = 0; d < kDays.size(); d += 3) {
      if (lower(s[i]) == kDays[d] && lower(s[i + 1]) == kDays[d + 1] && lower(s[i + 2]) == kDays[d + 2]) {
        i += 3;
        return true;
      }
    }
    return false;
  }
};

// Skips an optional '[' or "<N>" syslog priority at the start of the line.
size_t afterPrefix(std::string_view line) {
  if (line.empty()) return 0;
  if (line[0] == '[') return 1;
  if (line[0] != '<') return 0;
  size_t i = 1;
  while (i < line.size() && i <= 3 && isDigit(line[i])) ++i;
  return i > 1 && i < line.size() && line[i] == '>' ? i + 1 : 0;
}

// ".123" or ",123456789": microseconds from the first six digits.
inline int64_t fraction(Cursor& c, bool allowComma) {
  if (!(c.at('.') || (allowComma && c.at(','))) || !c.digitAt(1)) return 0;
  ++c.i;
  int64_t micros = 0;
  int digits = 0;
  while (c.digitAt(0)) {
    if (digits < 6) micros = micros * 10 + (c.s[c.i] - '0');
    ++digits;
    ++c.i;
  }
  for (; digits < 6; ++digits) micros *= 10;
  return micros;
}

// "Z", "±hh:mm" or "±hhmm", the offset optionally after one blank.
bool zone(Cursor& c, ClockTail& tail) {
  if (c.at('Z') || c.at('z')) {
    ++c.i;
    tail.zoned = true;
    return true;
  }
  Cursor z = c;
  z.eat(' ');
  if (!z.at('+') && !z.at('-')) return false;
  const int sign = z.s[z.i] == '-' ? -1 : 1;
  ++z.i;
  int hours = 0, minutes = 0;
  if (!z.fixed(2, hours)) return false;
  z.eat(':');
  if (!z.fixed(2, minutes) || z.digitAt(0) || hours > 23 || minutes > 59) return false;
  c = z;
  tail.zoned = true;
  tail.offsetMinutes = sign * (hours * 60 + minutes);
  return true;
}

bool zonedFormat(TimestampFormat f) {
  return f == TimestampFormat::iso8601 || f == TimestampFormat::rfc5424 || f == TimestampFormat::slashDate ||
         f == TimestampFormat::accessLog;
}

// The fields before the seconds, as read by each format's head parser.
struct Head {
  int year = 1970, month = 1, day = 1, hour = 0, minute = 0;
  size_t begin = 0;
  bool hasDate = true, hasYear = true;
};

// "hh:mm:" with the hour two digits, or one or two when `looseHour`.
bool clockHead(Cursor& c, Head& h, bool looseHour) {
  if (!(looseHour ? c.upToTwo(h.hour) : c.fixed(2, h.hour))) return false;
  return c.eat(':') && c.fixed(2, h.minute) && c.eat(':');
}

// Two digits at p, or -1. The ISO shapes are read at fixed offsets: they are
// the common case and the one the index scans most.
inline int twoDigits(const char* p) {
  const unsigned a = static_cast<unsigned char>(p[0]) - '0', b = static_cast<unsigned char>(p[1]) - '0';
  return a <= 9 && b <= 9 ? static_cast<int>(a * 10 + b) : -1;
}

// "yyyy-mm-ddThh:mm:" (or blank for T, and '/' for '-').
bool isoHead(Cursor& c, Head& h, char dateSeparator) {
  constexpr size_t kLength = 17;
  if (c.s.size() - c.i < kLength) return false;
  const char* p = c.s.data() + c.i;
  const int century = twoDigits(p), year = twoDigits(p + 2), month = twoDigits(p + 5), day = twoDigits(p + 8),
            hour = twoDigits(p + 11), minute = twoDigits(p + 14);
  if ((century | year | month | day | hour | minute) < 0 || p[4] != dateSeparator || p[7] != dateSeparator ||
      (p[10] != 'T' && p[10] != 't' && p[10] != ' ') || p[13] != ':' || p[16] != ':')
    return false;
  h.year = century * 100 + year;
  h.month = month;
  h.day = day;
  h.hour = hour;
  h.minute = minute;
  c.i += kLength;
  return true;
}

// Reads the fields before the seconds; the cursor ends on the seconds.
bool readHead(TimestampFormat format, Cursor& c, Head& h, int32_t yearForYearless) {
  using F = TimestampFormat;
  switch (format) {
    case F::iso8601: return isoHead(c, h, '-');
    case F::slashDate: return isoHead(c, h, '/');
    case F::rfc5424: {
      int priority = 0;
      c.i = 0;
      if (!c.eat('<') || !c.upToTwo(priority)) return false;
      if (c.digitAt(0)) c.i++, priority = priority * 10 + (c.s[c.i - 1] - '0');
      if (priority > 191 || !c.eat('>') || !c.eat('1') || !c.eat(' ')) return false;
      h.begin = c.i;
      return isoHead(c, h, '-');
    }
    case F::syslog:
      h.year = yearForYearless;
      h.hasYear = false;
      if (!c.monthName(h.month) || !c.eat(' ')) return false;
      if (c.eat(' ') ? !c.fixed(1, h.day) : !c.fixed(2, h.day)) return false;
      return c.eat(' ') && clockHead(c, h, false);
    case F::ctime:
      if (!c.weekdayName() || !c.eat(' ') || !c.monthName(h.month) || !c.eat(' ')) return false;
      if (c.eat(' ') ? !c.fixed(1, h.day) : !c.upToTwo(h.day)) return false;
      return c.eat(' ') && clockHead(c, h, false);
    case F::usDate:
      if (!c.upToTwo(h.month) || !c.eat('/') || !c.upToTwo(h.day) || !c.eat('/') || !c.fixed(4, h.year))
        return false;
      c.eat(',');
      return c.eat(' ') && clockHead(c, h, true);
    case F::europeanDate:
      if (!c.upToTwo(h.day) || !c.eat('.') || !c.upToTwo(h.month) || !c.eat('.') || !c.fixed(4, h.year))
        return false;
      return c.eat(' ') && clockHead(c, h, true);
    case F::glog: {
      if (c.i >= c.s.size() || std::string_view("IWEFDV").find(c.s[c.i]) == std::string_view::npos)
        return false;
      ++c.i;
      h.begin = c.i;
      h.year = yearForYearless;
      h.hasYear = false;
      return c.fixed(2, h.month) && c.fixed(2, h.day) && c.eat(' ') && clockHead(c, h, false);
    }
    case F::timeOfDay: h.hasDate = h.hasYear = false; return clockHead(c, h, false);
    case F::accessLog:
    case F::epochMillis:
    case F::epochSeconds: return false;
  }
  return false;
}

bool validDate(const Head& h) {
  if (!h.hasDate) return true;
  if (h.year < 1 || h.month < 1 || h.month > 12 || h.day < 1) return false;
  // A yearless 29 February is taken whatever the year it is given.
  if (!h.hasYear && h.month == 2) return h.day <= 29;
  return h.day <= daysInMonth(h.year, h.month);
}

int64_t headMicros(const Head& h) {
  const int64_t days = h.hasDate ? daysFromCivil(h.year, h.month, h.day) : 0;
  return days * kMicrosPerDay + (int64_t{h.hour} * 60 + h.minute) * kMicrosPerMinute;
}

// [dd/Mon/yyyy:hh:mm:ss ±hhmm] anywhere in the first 128 bytes.
std::optional<LineTime> parseAccessLog(std::string_view line) {
  const std::string_view window = line.substr(0, kAccessLogWindow);
  for (size_t open = window.find('['); open != std::string_view::npos; open = window.find('[', open + 1)) {
    Cursor c{line, open + 1};
    Head h;
    h.begin = c.i;
    if (!c.fixed(2, h.day) || !c.eat('/') || !c.monthName(h.month) || !c.eat('/') || !c.fixed(4, h.year) ||
        !c.eat(':') || !clockHead(c, h, false) || !validDate(h) || h.hour > 23 || h.minute > 59)
      continue;
    ClockTail tail;
    if (!detail::parseClockTail(TimestampFormat::accessLog, line, c.i, tail) ||
        tail.end >= static_cast<int32_t>(line.size()) || line[static_cast<size_t>(tail.end)] != ']')
      continue;
    const int64_t micros = headMicros(h) + tail.micros - int64_t{tail.offsetMinutes} * kMicrosPerMinute;
    return LineTime{
        micros, tail.zoned, true, true, static_cast<int32_t>(h.begin), tail.end, tail.offsetMinutes * 60};
  }
  return std::nullopt;
}

// 10 digits of seconds (optionally with a fraction) or 13 of milliseconds.
std::optional<LineTime> parseEpoch(std::string_view line, bool millis) {
  Cursor c{line, afterPrefix(line)};
  const size_t begin = c.i;
  int64_t value = 0;
  while (c.digitAt(0) && c.i - begin < 14) value = value * 10 + (line[c.i++] - '0');
  const size_t digits = c.i - begin;
  if (digits != (millis ? 13u : 10u)) return std::nullopt;
  int64_t micros = 0;
  if (millis) {
    if (value <= kEpochMinimumSeconds * 1000) return std::nullopt;
    micros = value * 1000;
  } else {
    if (value <= kEpochMinimumSeconds) return std::nullopt;
    micros = value * kMicrosPerSecond + fraction(c, false);
    if (c.digitAt(0)) return std::nullopt;
  }
  return LineTime{micros, true, true, true, static_cast<int32_t>(begin), static_cast<int32_t>(c.i), 0};
}

}  // namespace

namespace detail {

bool parseClockTail(TimestampFormat format, std::string_view line, size_t pos, ClockTail& tail) {
  Cursor c{line, pos};
  int second = 0;
  if (!c.fixed(2, second) || second > 60) return false;
  tail = ClockTail{};
  tail.micros = second * kMicrosPerSecond + fraction(c, true);
  if (zonedFormat(format)) zone(c, tail);
  if (format == TimestampFormat::usDate) {
    Cursor m = c;
    m.eat(' ');
    if (m.i + 1 < line.size() && lower(line[m.i + 1]) == 'm' &&
        (lower(line[m.i]) == 'a' || lower(line[m.i]) == 'p')) {
      tail.meridiem = lower(line[m.i]) == 'a' ? Meridiem::am : Meridiem::pm;
      m.i += 2;
      if (m.i < line.size() && isAlnum(line[m.i])) return false;
      c = m;
    }
  }
  if (c.digitAt(0)) return false;
  tail.end = static_cast<int32_t>(c.i);
  return true;
}

std::optional<int64_t> combine(int64_t head, int hour, const ClockTail& tail) {
  int64_t shiftHours = 0;
  if (tail.meridiem == Meridiem::none) {
    if (hour > 23) return std::nullopt;
  } else {
    if (hour < 1 || hour > 12) return std::nullopt;
    if (tail.meridiem == Meridiem::am && hour == 12) shiftHours = -12;
    if (tail.meridiem == Meridiem::pm && hour != 12) shiftHours = 12;
  }
  return head + shiftHours * 60 * kMicrosPerMinute + tail.micros -
         int64_t{tail.offsetMinutes} * kMicrosPerMinute;
}

bool parseSplit(TimestampFormat format, std::string_view line, int32_t yearForYearless, SplitTime& split,
                LineTime& time) {
  Cursor c{line, afterPrefix(line)};
  Head h;
  h.begin = c.i;
  if (!readHead(format, c, h, yearForYearless) || h.minute > 59 || h.hour > 23) return false;
  split.secondsPos = static_cast<int32_t>(c.i);
  split.hour = h.hour;
  if (!parseClockTail(format, line, c.i, split.tail)) return false;
  int32_t end = split.tail.end;
  if (format == TimestampFormat::ctime) {
    Cursor y{line, static_cast<size_t>(end)};
    if (!y.eat(' ') || !y.fixed(4, h.year) || y.digitAt(0)) return false;
    end = static_cast<int32_t>(y.i);
  }
  if (!validDate(h)) return false;
  split.headMicros = headMicros(h);
  const auto micros = combine(split.headMicros, h.hour, split.tail);
  if (!micros) return false;
  time.micros = *micros;
  time.zoned = split.tail.zoned;
  time.hasDate = h.hasDate;
  time.hasYear = h.hasYear;
  time.begin = static_cast<int32_t>(h.begin);
  time.end = end;
  time.offsetSeconds = split.tail.offsetMinutes * 60;
  return true;
}

}  // namespace detail

int64_t daysFromCivil(int64_t year, int month, int day) {
  // Howard Hinnant's days_from_civil, with the day allowed past the month.
  year -= month <= 2;
  const int64_t era = (year >= 0 ? year : year - 399) / 400;
  const int64_t yearOfEra = year - era * 400;
  const int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + dayOfEra - 719468;
}

std::optional<LineTime> parseTimestamp(TimestampFormat format, std::string_view line,
                                       int32_t yearForYearless) {
  switch (format) {
    case TimestampFormat::accessLog: return parseAccessLog(line);
    case TimestampFormat::epochSeconds: return parseEpoch(line, false);
    case TimestampFormat::epochMillis: return parseEpoch(line, true);
    default: break;
  }
  // Built in the returned object: a copy of a LineTime right after its
  // flags were stored byte by byte stalls on store forwarding.
  std::optional<LineTime> out(std::in_place);
  SplitTime split;
  if (!detail::parseSplit(format, line, yearForYearless, split, *out)) out.reset();
  return out;  // one object on every path, so it is built in place
}

CivilDate civilFromDays(int64_t days) {
  // Howard Hinnant's civil_from_days: eras of 400 years from 0000-03-01.
  days += 719468;
  const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const int64_t dayOfEra = days - era * 146097;
  const int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const int64_t monthIndex = (5 * dayOfYear + 2) / 153;
  const int day = static_cast<int>(dayOfYear - (153 * monthIndex + 2) / 5 + 1);
  const int month = static_cast<int>(monthIndex < 10 ? monthIndex + 3 : monthIndex - 9);
  return {yearOfEra + era * 400 + (month <= 2 ? 1 : 0), month, day};
}

}  // namespace quorin::logs
