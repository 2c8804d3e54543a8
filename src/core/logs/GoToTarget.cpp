#include "logs/GoToTarget.h"

#define PCRE2_CODE_UNIT_WIDTH 8

#include <pcre2.h>

#include <charconv>
#include <limits>
#include <memory>

#include "base/Check.h"

namespace quorin::logs {
namespace {

constexpr std::string_view kPercentMessage = "Percent must be a number from 0 to 100: 50%";
constexpr std::string_view kByteMessage = "Byte offset needs a whole number: b1234";
constexpr std::string_view kRecordMessage = "Record needs a whole number from 1: r1234";
constexpr std::string_view kLineMessage = "Line numbers start at 1";
constexpr std::string_view kOffsetMissingMessage = "Offset needs a number and a unit: +5m, -30s, +2h, +1d";
constexpr std::string_view kOffsetUnitMessage = "Offset unit must be s, m, h or d: +5m, -30s, +2h, +1d";
constexpr std::string_view kOffsetNumberMessage = "Offset needs a plain number before the unit: +5m, +1.5h";
constexpr std::string_view kWindowEdgeSuffix = ": offsets like +5m are not window edges; give a time";

using Kind = ParseFailure::Kind;

std::unexpected<ParseFailure> fail(Kind kind, std::string_view text = {}) {
  return std::unexpected(ParseFailure{kind, std::string(text)});
}

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

std::string_view trim(std::string_view text) {
  while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
  return text;
}

// Trimmed and ASCII lower-cased; bytes beyond ASCII are kept as they are.
std::string normalize(std::string_view input) {
  std::string text(trim(input));
  for (char& c : text)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return text;
}

// Digits with at most one '.', at least one digit: "5", "1.5", ".5", "5.".
bool isPlainUnsignedDecimal(std::string_view text) {
  bool digit = false, dot = false;
  for (const char c : text) {
    if (isDigit(c)) {
      digit = true;
    } else if (c == '.' && !dot) {
      dot = true;
    } else {
      return false;
    }
  }
  return digit;
}

// A plain decimal number with an optional sign; no exponents, no hex, no inf.
std::optional<double> readDecimal(std::string_view text) {
  bool negative = false;
  if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
    negative = text.front() == '-';
    text.remove_prefix(1);
  }
  if (!isPlainUnsignedDecimal(text)) return std::nullopt;
  double value = 0;
  const auto [end, ec] =
      std::from_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
  if (ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return negative ? -value : value;
}

// An integer with an optional sign; absent when it does not fit in 64 bits,
// so that a huge number is refused rather than read as some other one.
std::optional<int64_t> readInteger(std::string_view text) {
  bool negative = false;
  if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
    negative = text.front() == '-';
    text.remove_prefix(1);
  }
  if (text.empty()) return std::nullopt;
  int64_t value = 0;
  for (const char c : text) {
    if (!isDigit(c)) return std::nullopt;
    const int digit = c - '0';
    if (value > (std::numeric_limits<int64_t>::max() - digit) / 10) return std::nullopt;
    value = value * 10 + digit;
  }
  return negative ? -value : value;
}

std::expected<GoToTarget, ParseFailure> parsePercent(std::string_view text) {
  text.remove_suffix(1);
  const auto number = readDecimal(trim(text));
  if (!number || *number < 0 || *number > 100) return fail(Kind::targetInvalid, kPercentMessage);
  return PercentTarget{*number};
}

std::expected<TimeOffsetTarget, ParseFailure> parseOffset(std::string_view text) {
  const double sign = text.front() == '-' ? -1 : 1;
  text.remove_prefix(1);
  if (text.empty()) return fail(Kind::offsetInvalid, kOffsetMissingMessage);
  const char unit = text.back();
  if (isDigit(unit) || unit == '.') return fail(Kind::offsetInvalid, kOffsetMissingMessage);
  double factor = 0;
  switch (unit) {
    case 's': factor = 1; break;
    case 'm': factor = 60; break;
    case 'h': factor = 3'600; break;
    case 'd': factor = 86'400; break;
    default: return fail(Kind::offsetInvalid, kOffsetUnitMessage);
  }
  text.remove_suffix(1);
  if (!isPlainUnsignedDecimal(text)) return fail(Kind::offsetInvalid, kOffsetNumberMessage);
  const auto number = readDecimal(text);
  if (!number) return fail(Kind::offsetInvalid, kOffsetNumberMessage);
  return TimeOffsetTarget{sign * *number * factor};
}

struct CodeDeleter {
  void operator()(pcre2_code* code) const { pcre2_code_free(code); }
};
struct MatchDataDeleter {
  void operator()(pcre2_match_data* data) const { pcre2_match_data_free(data); }
};

// Compiled once; a compiled pattern may be matched from many threads at once.
const pcre2_code* timePattern() {
  static const std::unique_ptr<pcre2_code, CodeDeleter> code = [] {
    static constexpr char kPattern[] =
        R"(^(?:(\d{4})-(\d{1,2})-(\d{1,2}))?(?:[ tT]?(\d{1,2}):(\d{1,2})(?::(\d{1,2}))?)?$)";
    int error = 0;
    PCRE2_SIZE errorOffset = 0;
    pcre2_code* compiled = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(kPattern), PCRE2_ZERO_TERMINATED, 0,
                                         &error, &errorOffset, nullptr);
    QUORIN_CHECK(compiled != nullptr, "the time pattern compiles");
    return std::unique_ptr<pcre2_code, CodeDeleter>(compiled);
  }();
  return code.get();
}

// Group `group` of the last match as a number, absent when it did not take part.
std::optional<int> groupValue(pcre2_match_data* data, std::string_view text, int group) {
  const PCRE2_SIZE* vector = pcre2_get_ovector_pointer(data);
  const PCRE2_SIZE start = vector[2 * group], end = vector[2 * group + 1];
  if (start == PCRE2_UNSET) return std::nullopt;
  int value = 0;
  for (PCRE2_SIZE i = start; i < end; ++i) value = value * 10 + (text[i] - '0');
  return value;
}

// Absent when the text is not a time at all; a failure when a part is out of range.
std::optional<std::expected<TimeTarget, ParseFailure>> parseTime(std::string_view text) {
  // The pattern also matches the empty text; callers have refused it already.
  const std::unique_ptr<pcre2_match_data, MatchDataDeleter> data(
      pcre2_match_data_create_from_pattern(timePattern(), nullptr));
  const int rc = pcre2_match(timePattern(), reinterpret_cast<PCRE2_SPTR>(text.data()), text.size(), 0, 0,
                             data.get(), nullptr);
  if (rc < 0) return std::nullopt;
  TimeTarget time;
  time.year = groupValue(data.get(), text, 1);
  time.month = groupValue(data.get(), text, 2);
  time.day = groupValue(data.get(), text, 3);
  time.hour = groupValue(data.get(), text, 4);
  time.minute = groupValue(data.get(), text, 5);
  time.second = groupValue(data.get(), text, 6);

  if (time.hour && *time.hour >= 24) return fail(Kind::timeOutOfRange, "Hour must be 0 to 23");
  if (time.minute && *time.minute >= 60) return fail(Kind::timeOutOfRange, "Minute must be 0 to 59");
  if (time.second && *time.second >= 60) return fail(Kind::timeOutOfRange, "Second must be 0 to 59");
  if (time.month && (*time.month < 1 || *time.month > 12))
    return fail(Kind::timeOutOfRange, "Month must be 1 to 12");
  if (time.day) {
    const int length = daysInMonth(*time.year, *time.month);
    if (*time.day < 1 || *time.day > length)
      return fail(Kind::timeOutOfRange, "Day must be 1 to " + std::to_string(length) + " for that month");
  }
  return time;
}

}  // namespace

std::string ParseFailure::message() const {
  switch (kind) {
    case Kind::empty: return {};
    case Kind::notRecognized: return std::string(kNotRecognizedMessage);
    default: return text;
  }
}

int daysInMonth(int year, int month) {
  switch (month) {
    case 4:
    case 6:
    case 9:
    case 11: return 30;
    case 2: return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0 ? 29 : 28;
    default: return 31;
  }
}

std::expected<GoToTarget, ParseFailure> parseGoToTarget(std::string_view input) {
  const std::string normalized = normalize(input);
  const std::string_view text = normalized;
  if (text.empty()) return fail(Kind::empty);

  if (text.back() == '%') return parsePercent(text);
  if (text.front() == 'b') {
    const auto offset = readInteger(trim(text.substr(1)));
    if (!offset || *offset < 0) return fail(Kind::targetInvalid, kByteMessage);
    return ByteTarget{*offset};
  }
  if (text.front() == 'r') {
    const auto record = readInteger(trim(text.substr(1)));
    if (!record || *record < 1) return fail(Kind::targetInvalid, kRecordMessage);
    return RecordTarget{*record};
  }
  if (text.front() == '+' || text.front() == '-') return parseOffset(text);
  if (const auto line = readInteger(text)) {
    if (*line < 1) return fail(Kind::targetInvalid, kLineMessage);
    return LineTarget{*line};
  }
  if (auto time = parseTime(text)) return *std::move(time);
  return fail(Kind::notRecognized);
}

std::expected<TimeInput, ParseFailure> parseTimeInput(std::string_view input) {
  const std::string normalized = normalize(input);
  const std::string_view text = normalized;
  if (text.empty()) return fail(Kind::empty);
  if (text.front() == '+' || text.front() == '-') return parseOffset(text);
  if (auto time = parseTime(text)) return *std::move(time);
  return fail(Kind::notRecognized);
}

std::expected<TimeTarget, ParseFailure> parseWindowEdge(std::string_view input, std::string_view fieldName) {
  auto parsed = parseTimeInput(input);
  if (!parsed) return std::unexpected(std::move(parsed.error()));
  if (std::holds_alternative<TimeOffsetTarget>(*parsed))
    return fail(Kind::offsetInvalid, std::string(fieldName) + std::string(kWindowEdgeSuffix));
  return std::get<TimeTarget>(*parsed);
}

}  // namespace quorin::logs
