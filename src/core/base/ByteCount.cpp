#include "base/ByteCount.h"

#include <cmath>
#include <cstdio>

namespace quorin::base {

std::string formatByteCount(int64_t bytes) {
  if (bytes == 0) return "Zero KB";
  if (bytes == 1) return "1 byte";
  if (bytes < 1000 && bytes > -1000) return std::to_string(bytes) + " bytes";
  struct Unit {
    const char* name;
    double size;
    int decimals;
  };
  static constexpr Unit kUnits[] = {
      {"KB", 1e3, 0}, {"MB", 1e6, 1}, {"GB", 1e9, 2}, {"TB", 1e12, 2}, {"PB", 1e15, 2}};
  const double value = static_cast<double>(bytes);
  const Unit* unit = &kUnits[0];
  for (const Unit& u : kUnits) {
    // Pick the largest unit the value reaches once rounded, so 999,999 bytes is "1 MB", not "1000 KB".
    const double scale = std::pow(10.0, u.decimals);
    if (std::round(std::fabs(value) / u.size * scale) / scale >= 1.0) unit = &u;
  }
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", unit->decimals, std::fabs(value) / unit->size);
  std::string number = text;
  if (number.find('.') != std::string::npos) {
    while (number.back() == '0') number.pop_back();
    if (number.back() == '.') number.pop_back();
  }
  return (bytes < 0 ? "-" : "") + number + " " + unit->name;
}

std::string groupDigits(int64_t number, std::string_view separator) {
  const bool negative = number < 0;
  // Through unsigned so that INT64_MIN has a magnitude too.
  uint64_t magnitude = negative ? 0 - static_cast<uint64_t>(number) : static_cast<uint64_t>(number);
  std::string digits = std::to_string(magnitude);
  std::string out;
  for (size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && (digits.size() - i) % 3 == 0) out.append(separator);
    out.push_back(digits[i]);
  }
  return negative ? "-" + out : out;
}

}  // namespace quorin::base
