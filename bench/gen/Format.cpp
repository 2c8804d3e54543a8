#include "gen/Format.h"

#include <charconv>

namespace quorin::gen {
namespace {

struct Civil {
  int64_t year;
  int month;
  int day;
};

// The inverse of daysFromCivil (Howard Hinnant's algorithm).
Civil civilFromDays(int64_t days) {
  days += 719468;
  const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const int64_t dayOfEra = days - era * 146097;
  const int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const int64_t mp = (5 * dayOfYear + 2) / 153;
  const int day = static_cast<int>(dayOfYear - (153 * mp + 2) / 5 + 1);
  const int month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  return {yearOfEra + era * 400 + (month <= 2), month, day};
}

int64_t floorDiv(int64_t a, int64_t b) { return a / b - (a % b != 0 && (a < 0) != (b < 0)); }

}  // namespace

void appendInt(std::string& out, int64_t value) {
  char digits[24];
  const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  out.append(digits, end);
}

void appendPadded(std::string& out, int64_t value, int width) {
  char digits[24];
  const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  for (auto n = end - digits; n < width; ++n) out.push_back('0');
  out.append(digits, end);
}

void appendHex(std::string& out, uint64_t value, int digits) {
  static constexpr char kHex[] = "0123456789abcdef";
  for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4) out.push_back(kHex[(value >> shift) & 0xF]);
}

void appendFixed(std::string& out, int64_t units, int decimals) {
  if (units < 0) out.push_back('-');
  const uint64_t magnitude = units < 0 ? 0 - static_cast<uint64_t>(units) : static_cast<uint64_t>(units);
  uint64_t scale = 1;
  for (int i = 0; i < decimals; ++i) scale *= 10;
  appendInt(out, static_cast<int64_t>(magnitude / scale));
  if (decimals == 0) return;
  out.push_back('.');
  appendPadded(out, static_cast<int64_t>(magnitude % scale), decimals);
}

void appendIsoMillis(std::string& out, int64_t epochMillis) {
  const int64_t days = floorDiv(epochMillis, 86'400'000);
  const int64_t msOfDay = epochMillis - days * 86'400'000;
  const Civil date = civilFromDays(days);
  appendPadded(out, date.year, 4);
  out.push_back('-');
  appendPadded(out, date.month, 2);
  out.push_back('-');
  appendPadded(out, date.day, 2);
  out.push_back('T');
  appendPadded(out, msOfDay / 3'600'000, 2);
  out.push_back(':');
  appendPadded(out, msOfDay / 60'000 % 60, 2);
  out.push_back(':');
  appendPadded(out, msOfDay / 1000 % 60, 2);
  out.push_back('.');
  appendPadded(out, msOfDay % 1000, 3);
  out.push_back('Z');
}

}  // namespace quorin::gen
