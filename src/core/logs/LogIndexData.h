#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "logs/Severity.h"
#include "logs/Timestamp.h"

namespace quorin::logs {

// Lines per block of the log index: small enough that the exact scan inside
// one block stays well under a frame, large enough that a 2 GiB log has only
// a few thousand blocks.
inline constexpr int64_t kLogBlockLines = 4096;
inline constexpr size_t kLevelCount = 9;  // Level::none … Level::fatal
inline constexpr int64_t kNoTime = INT64_MIN;

inline constexpr size_t levelSlot(Level level) { return static_cast<size_t>(level); }

// A run of consecutive lines, normally kLogBlockLines of them: a build cuts
// blocks of exactly that many (the last one shorter), and edits make the
// blocks they touch longer or shorter (split or merged when far off) so
// that the blocks after an edit move without being read again.
struct LogBlock {
  int64_t firstLine = 0;  // 0-based document line
  int64_t lineCount = 0;
  // Messages whose head line lies in this block, by level (levelSlot). A
  // document without timestamps has one message per line.
  std::array<uint32_t, kLevelCount> messages{};
  // Times of the first and last timestamped lines in the block, and the
  // largest; kNoTime when no line in the block has one.
  int64_t firstMicros = kNoTime;
  int64_t lastMicros = kNoTime;
  int64_t maxMicros = kNoTime;
  // Lines in the block with a timestamp (head lines of timestamped messages).
  uint32_t timedLines = 0;
  // Times never fell from one timestamped line to the next inside the block.
  bool monotonic = true;
  // The level of the message open just before the block's first line (the
  // last head line in an earlier block): what a leading continuation line
  // takes. Level::none at line 0.
  Level enteringLevel = Level::none;
  // The year a yearless format's parser is in at the block's first line, so
  // that the block can be parsed again on its own.
  int32_t enteringYear = 0;
};

// What the log index knows about a document at one version. Immutable once
// published; shared by the views, the navigator and the pictures.
//
// Memory: one LogBlock (about 100 bytes) per 4,096 lines and 4 bytes per
// message at warning or above; nothing per ordinary line. Line numbers are
// 0-based; a document of more than 2^32 lines lists no alert past that line.
struct LogIndexData {
  int64_t snapshotVersion = 0;
  uint64_t rulesGeneration = 0;
  // The timestamp format found by sampling, if any, and the year yearless
  // timestamps start in at line 0.
  std::optional<TimestampFormat> format;
  int32_t firstYear = 0;
  std::vector<LogBlock> blocks;
  // Head lines of messages at warning, error, critical and fatal, each list
  // ascending (index = levelSlot(level) - levelSlot(Level::warning)).
  std::array<std::vector<uint32_t>, 4> alertLines;
  // Lines covered so far (blocks may still be filling in); all of them when complete.
  int64_t linesIndexed = 0;
  bool complete = false;
  // Timestamped lines (head lines) among linesIndexed.
  int64_t timedLines = 0;

  bool hasTimes() const { return format.has_value() && timedLines > 0; }
  // The block holding `line`, by binary search over firstLine; none past linesIndexed.
  std::optional<size_t> blockOfLine(int64_t line) const;
  // Messages at each level over lines [fromLine, toLine): whole blocks from
  // their counts, partial blocks at the edges counted from alertLines where
  // the level has a list, and pro rata otherwise.
  std::array<int64_t, kLevelCount> messageCounts(int64_t fromLine, int64_t toLine) const;
  // The first head line after `line` (before it, for previous) of a message
  // at `level` or above, from alertLines for warning and above; none when
  // there is none (levels below warning: none either, the caller scans).
  std::optional<int64_t> nextAlert(int64_t line, Level atLeast) const;
  std::optional<int64_t> previousAlert(int64_t line, Level atLeast) const;
};

}  // namespace quorin::logs
