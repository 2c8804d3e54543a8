#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>

#include "logs/GoToTarget.h"
#include "logs/LogIndex.h"
#include "logs/LogIndexData.h"

namespace quorin::logs {

// Where a time target lands.
struct TimeJump {
  int64_t line = 0;  // 0-based document line
  // The time is after every indexed time: `line` is the document's last line
  // (the last indexed line while the index is still building).
  bool pastEnd = false;
  // Shown in the status bar with the jump; empty when there is nothing to say
  // ("Past the last timestamp (2026-03-20 11:59:58) — went to the last line").
  std::string notice;
};

// Why a time target cannot be resolved; describe() is the text to show.
struct TimeRefusal {
  enum class Kind : uint8_t {
    noTimestamps,      // kNoTimestampsMessage
    caretWithoutTime,  // an offset or a clock time alone, and the caret line's message has no time
    notIndexed,        // the index has not reached any timestamp yet
  };
  Kind kind = Kind::noTimestamps;
  std::string describe() const;
};

// Resolves a time or a time offset (as the go-to grammar parsed it) to the
// first line, in file order, whose message time is at or after the target.
// A clock time alone takes the caret line's day; an offset counts from the
// caret line's message time. Typed times without a zone are compared as wall
// time as written (with the timestamps' own offset when they carry one: the
// caret line's message's, else the first timestamp's). A typed date against
// a log of times of day alone keeps only its clock. The first block whose
// largest time reaches the target holds the answer (every block before it
// lies wholly earlier), so one pass over the blocks and an exact scan of one
// block find it. Blocking but short (one block read); any thread.
std::expected<TimeJump, TimeRefusal> resolveTime(const LogIndexData& data, const LogSource& source,
                                                 const TimeInput& input, int64_t caretLine);

// The message holding `line`: its head line (the nearest timestamped line at
// or above it, or `line` itself in a document without timestamps), and the
// head's time and level. Reads back at most one block plus the entering state
// the index recorded. Any thread.
struct MessageInfo {
  int64_t headLine = 0;
  std::optional<LineTime> time;
  Level level = Level::none;
};
MessageInfo messageAt(const LogIndexData& data, const LogSource& source, const SeverityRules& rules,
                      int64_t line);

// The caret line's time and the time since the previous message (for the
// status bar), e.g. "2026-03-20 12:00:01.250 · +1.25 s since previous"; empty
// when the line has no time.
std::string describeTimeAt(const LogIndexData& data, const LogSource& source, const SeverityRules& rules,
                           int64_t line);

}  // namespace quorin::logs
