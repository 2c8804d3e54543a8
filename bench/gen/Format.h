#pragma once

#include <cstdint>
#include <string>

namespace quorin::gen {

// Appending formatters for the generators' hot loops: no locale, no
// floating point, no temporary strings, so output is identical everywhere
// and a line costs a few hundred nanoseconds.

void appendInt(std::string& out, int64_t value);
// Zero-padded to at least `width` digits; value >= 0.
void appendPadded(std::string& out, int64_t value, int width);
// Lower-case hex, exactly `digits` digits (the low ones).
void appendHex(std::string& out, uint64_t value, int digits);
// `units` in 1/10^decimals, e.g. (12995, 2) → "129.95" and (-5, 1) → "-0.5".
void appendFixed(std::string& out, int64_t units, int decimals);
// Milliseconds since 1970-01-01 UTC as "2026-03-14T09:26:53.589Z".
void appendIsoMillis(std::string& out, int64_t epochMillis);

// Days since 1970-01-01 of a proleptic Gregorian date.
constexpr int64_t daysFromCivil(int64_t year, int month, int day) {
  year -= month <= 2;
  const int64_t era = (year >= 0 ? year : year - 399) / 400;
  const int64_t yearOfEra = year - era * 400;
  const int64_t dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
  const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + dayOfEra - 719468;
}

}  // namespace quorin::gen
