#pragma once

#include <QColor>
#include <QPalette>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

#include "app/view/TextLines.h"
#include "logs/LogIndex.h"
#include "logs/LogIndexData.h"
#include "logs/SeverityRules.h"
#include "logs/TimestampParser.h"

namespace quorin::app {

// A line in sight, as the text view lists them top to bottom.
struct VisibleLine {
  int64_t lineStart = 0;
  int64_t contentEnd = 0;
  std::optional<int64_t> lineNumber;  // from 0, when the line index knows it
};

// How one line of a log is drawn: its message's level, where its timestamp
// and its level word are (document offsets; empty ranges when there are none).
struct LineLogStyle {
  logs::Level level = logs::Level::none;
  bool head = false;  // the line has a timestamp: it starts a message
  storage::ByteRange timestamp;
  storage::ByteRange levelWord;
};

// Severity and timestamps of the lines in sight, found when they are drawn
// (the index keeps nothing per line): the timestamp with the format the log
// index found, the level with the document's rules. A line without a
// timestamp takes the level of the message it continues. Documents without
// timestamps are not styled: "error" in source code or prose is not a level.
//
// Cost: each line is read once (its first kUserRuleWindowBytes bytes) and
// kept until the text, the rules or the index's format change.
// Thread-safety: GUI thread only (a value, no shared state).
class LogLineStyler {
 public:
  void setLog(std::shared_ptr<const logs::LogIndexData> data, logs::SeverityRules rules);
  bool active() const { return data_ && data_->format.has_value(); }

  // The styles of `rows` (consecutive lines, top to bottom), one per row.
  std::vector<LineLogStyle> style(const TextLines& lines, std::span<const VisibleLine> rows);

 private:
  LineLogStyle ownStyle(const TextLines& lines, const VisibleLine& row, logs::TimestampParser& parser);
  logs::Level messageLevelAbove(const TextLines& lines, const VisibleLine& row);

  std::shared_ptr<const logs::LogIndexData> data_;
  logs::SeverityRules rules_;
  // Per line start: the line's own style, for the text at cacheVersion_.
  std::unordered_map<int64_t, LineLogStyle> cache_;
  std::unordered_map<int64_t, logs::Level> messageCache_;
  int64_t cacheVersion_ = -1;
};

// The colours a level is drawn in, from the palette, so that they read on a
// light and on a dark background alike.
struct LogLineColors {
  static QColor word(logs::Level level, const QPalette& palette);
  // A faint background for lines at warning or above; transparent below.
  static QColor lineTint(logs::Level level, const QPalette& palette);
  static QColor timestamp(const QPalette& palette);
};

}  // namespace quorin::app
