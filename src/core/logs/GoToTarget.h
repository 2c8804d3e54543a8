#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace quorin::logs {

// A clock time and/or a date as typed. The three date fields are present or
// absent together, as are hour and minute; second is optional with them.
struct TimeTarget {
  std::optional<int> year, month, day, hour, minute, second;
  bool operator==(const TimeTarget&) const = default;
};

struct LineTarget {
  int64_t line = 1;  // 1-based as typed
  bool operator==(const LineTarget&) const = default;
};
struct PercentTarget {
  double percent = 0;  // 0…100
  bool operator==(const PercentTarget&) const = default;
};
struct ByteTarget {
  int64_t offset = 0;  // into the original document, 0 or more
  bool operator==(const ByteTarget&) const = default;
};
struct RecordTarget {
  int64_t record = 1;  // 1-based CSV record number
  bool operator==(const RecordTarget&) const = default;
};
struct TimeOffsetTarget {
  double seconds = 0;  // signed, relative to the caret line's timestamp
  bool operator==(const TimeOffsetTarget&) const = default;
};

// Where the go-to field sends the caret. Resolving it against a document
// (the line of a byte offset, the first line at a time) is the caller's.
using GoToTarget =
    std::variant<LineTarget, PercentTarget, ByteTarget, RecordTarget, TimeTarget, TimeOffsetTarget>;

// Why typed text is not a target; message() is ready to show under the field.
struct ParseFailure {
  enum class Kind : uint8_t { timeOutOfRange, offsetInvalid, targetInvalid, empty, notRecognized };

  Kind kind = Kind::empty;
  std::string text;  // the message of timeOutOfRange, offsetInvalid and targetInvalid

  // The text to show: empty for `empty`, the fixed hint for `notRecognized`.
  std::string message() const;
  bool operator==(const ParseFailure&) const = default;
};

inline constexpr std::string_view kNotRecognizedMessage =
    "Not a line, percentage, byte offset, record or time: try 42, 50%, b1234, r1234, 12:34:56, 2026-09-04 "
    "12:34 or +5m";
inline constexpr std::string_view kNoTimestampsMessage =
    "No timestamps recognized in this document — Go to Time needs a log with a timestamp at the start of "
    "its lines";
inline constexpr std::string_view kGoToHint = "Line · 50% · b1234 · r1234";
inline constexpr std::string_view kGoToHelp =
    "A line number, a percentage of the file (50%), a byte offset (b1234), or a record (r1234). Line and "
    "record numbers refer to the original document.";
inline constexpr std::string_view kGoToTimeHelp =
    "Same forms as Go to Time; a clock time means the caret line's day";

// Parses what was typed into the go-to field. The forms are tried in a fixed
// order (percentage, byte offset, record, time offset, line, time) and the
// first one the text claims decides, so "b12:00" is a bad byte offset, not a
// time. Pure and thread-safe.
std::expected<GoToTarget, ParseFailure> parseGoToTarget(std::string_view input);

// The Go to Time field and the filter's time-range fields: a time, or an
// offset in seconds from the caret line's timestamp.
using TimeInput = std::variant<TimeTarget, TimeOffsetTarget>;
std::expected<TimeInput, ParseFailure> parseTimeInput(std::string_view input);

// A time-range field's edge: a time only. `fieldName` leads the message that
// refuses an offset ("From: offsets like +5m are not window edges; give a time").
std::expected<TimeTarget, ParseFailure> parseWindowEdge(std::string_view input, std::string_view fieldName);

// Days in `month` (1…12) of `year` in the Gregorian calendar.
int daysInMonth(int year, int month);

}  // namespace quorin::logs
