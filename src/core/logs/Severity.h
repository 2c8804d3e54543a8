#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace quorin::logs {

// A line's severity, lowest first; `none` when nothing on the line says one.
enum class Level : uint8_t { none, trace, debug, info, notice, warning, error, critical, fatal };

// "trace" … "fatal"; "" for none.
std::string_view name(Level level);

// How far into the text after the timestamp the default rules look: a level
// is stated near the start of a line, and a bound keeps a gigabyte-long
// line as cheap as any other.
constexpr size_t kLevelWindowBytes = 160;

// A syslog priority's severity (priority mod 8): emerg and alert are fatal,
// crit critical, err error, then warning, notice, info, debug. none when
// the priority is negative.
Level syslogLevel(int priority);

// The default rules over `text`, the rest of a line after its timestamp,
// in its first kLevelWindowBytes bytes. A whole word (bounded by anything
// but ASCII letters, digits and `_`) written in lower case, upper case or
// capitalised names a level; a key (`level=`, `lvl=`, `severity=`, quoted
// or not, or JSON `"level": "…"`) with such a word as its value wins over
// any bare word, and otherwise the leftmost word wins. Allocates nothing.
Level detectLevel(std::string_view text);

// The default rules over a whole line whose timestamp ends at byte
// `timestampEnd` (0 when it has none): first the markers a format puts at
// the line's start — a syslog priority `<N>`, a glog letter (`E1123 …`), an
// Android letter (`E/Tag`) — then detectLevel over the text after the
// timestamp.
Level detectLineLevel(std::string_view line, size_t timestampEnd);

}  // namespace quorin::logs
