#include "logs/TimeNavigator.h"

#include <algorithm>
#include <cmath>

#include "logs/Messages.h"

namespace quorin::logs {
namespace {

constexpr int64_t kMicrosPerSecond = 1'000'000;
constexpr int64_t kMicrosPerDay = 86'400 * kMicrosPerSecond;
// Offsets beyond ten thousand years say nothing more; clamping keeps the
// sums below from overflowing.
constexpr double kLongestOffsetMicros = 1e4 * 366 * 86'400 * 1e6;

int64_t floorDiv(int64_t a, int64_t b) {
  const int64_t q = a / b;
  return (a % b != 0 && (a < 0) != (b < 0)) ? q - 1 : q;
}

std::unexpected<TimeRefusal> refuse(TimeRefusal::Kind kind) { return std::unexpected(TimeRefusal{kind}); }

// The target in the timestamps' own terms: wall time as written, or UTC
// for zoned timestamps (a typed time is then the wall time of `reference`'s
// offset, what the user reads on screen).
int64_t targetMicros(const TimeTarget& target, const LineTime& reference,
                     std::optional<int64_t> caretWallDay) {
  int64_t day = 0;
  if (reference.hasDate) {
    if (target.year) {
      day = daysFromCivil(*target.year, *target.month, *target.day);
    } else {
      day = *caretWallDay;
    }
  }
  const int64_t clock = (int64_t{target.hour.value_or(0)} * 3600 + int64_t{target.minute.value_or(0)} * 60 +
                         target.second.value_or(0)) *
                        kMicrosPerSecond;
  const int64_t wall = day * kMicrosPerDay + clock;
  return reference.zoned ? wall - int64_t{reference.offsetSeconds} * kMicrosPerSecond : wall;
}

int64_t largestTime(const LogIndexData& data) {
  int64_t largest = kNoTime;
  for (const LogBlock& block : data.blocks) largest = std::max(largest, block.maxMicros);
  return largest;
}

}  // namespace

std::string TimeRefusal::describe() const {
  switch (kind) {
    case Kind::noTimestamps: return std::string(kNoTimestampsMessage);
    case Kind::caretWithoutTime:
      return "The caret line has no timestamp to count from — type a date, or move the caret below a "
             "timestamp";
    case Kind::notIndexed: return "No timestamps indexed yet — try again in a moment";
  }
  return {};
}

std::expected<TimeJump, TimeRefusal> resolveTime(const LogIndexData& data, const LogSource& source,
                                                 const TimeInput& input, int64_t caretLine) {
  if (!data.format || (data.complete && data.timedLines == 0)) return refuse(TimeRefusal::Kind::noTimestamps);
  if (data.timedLines == 0) return refuse(TimeRefusal::Kind::notIndexed);
  LineHeads lines(source);
  const auto caret = headAtOrAbove(data, lines, std::max<int64_t>(caretLine, 0));
  // The first timestamp stands in for the caret's where only its zone and
  // whether the log has dates matter.
  const auto reference = caret ? caret : firstHeadAtOrAfter(data, source, INT64_MIN + 1);
  if (!reference) return refuse(TimeRefusal::Kind::notIndexed);

  int64_t target = 0;
  if (const auto* offset = std::get_if<TimeOffsetTarget>(&input)) {
    if (!caret) return refuse(TimeRefusal::Kind::caretWithoutTime);
    const double seconds = std::isfinite(offset->seconds) ? offset->seconds : 0.0;
    const double micros = std::clamp(seconds * 1e6, -kLongestOffsetMicros, kLongestOffsetMicros);
    target = caret->time.micros + std::llround(micros);
  } else {
    const TimeTarget& time = std::get<TimeTarget>(input);
    std::optional<int64_t> caretWallDay;
    if (!time.year && reference->time.hasDate) {
      if (!caret) return refuse(TimeRefusal::Kind::caretWithoutTime);
      caretWallDay =
          floorDiv(caret->time.micros + int64_t{caret->time.offsetSeconds} * kMicrosPerSecond, kMicrosPerDay);
    }
    target = targetMicros(time, reference->time, caretWallDay);
  }

  if (const auto head = firstHeadAtOrAfter(data, source, target)) return TimeJump{head->line, false, {}};

  // Every indexed time is earlier: the last line, and say why.
  LineTime last = reference->time;
  last.micros = largestTime(data);
  const std::string when = formatLineTime(last);
  if (data.complete) {
    const int64_t lastLine = std::max<int64_t>(lines.lineCount() - 1, 0);
    return TimeJump{lastLine, true, "Past the last timestamp (" + when + ") — went to the last line"};
  }
  const int64_t lastIndexed = std::max<int64_t>(data.linesIndexed - 1, 0);
  return TimeJump{lastIndexed, true,
                  "Past the times indexed so far (" + when + ") — went to the last line indexed"};
}

MessageInfo messageAt(const LogIndexData& data, const LogSource& source, const SeverityRules& rules,
                      int64_t line) {
  LineHeads lines(source);
  MessageInfo info;
  const auto head = headAtOrAbove(data, lines, line);
  if (head) {
    info.headLine = head->line;
    info.time = head->time;
  } else {
    // No timestamps: every line is its own message. Above the first
    // timestamp: those lines form one message, headed by the first line.
    const bool timed = data.format && (data.timedLines > 0 || !data.complete);
    info.headLine = timed ? 0 : std::max<int64_t>(line, 0);
  }
  const size_t timestampEnd = info.time ? static_cast<size_t>(info.time->end) : 0;
  info.level = rules.detect(lines.read(info.headLine, kUserRuleWindowBytes), timestampEnd);
  return info;
}

std::string describeTimeAt(const LogIndexData& data, const LogSource& source, const SeverityRules&,
                           int64_t line) {
  LineHeads lines(source);
  const auto head = headAtOrAbove(data, lines, line);
  if (!head) return {};
  std::string text = formatLineTime(head->time);
  if (const auto previous = headAtOrAbove(data, lines, head->line - 1))
    text += " · " + formatDuration(head->time.micros - previous->time.micros) + " since previous";
  return text;
}

}  // namespace quorin::logs
