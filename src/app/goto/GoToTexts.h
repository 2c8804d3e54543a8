#pragma once

#include <QCoreApplication>
#include <QString>
#include <cstdint>

#include "app/find/FindSummary.h"

namespace quorin::app {

// What the go-to field says, in one place (the parser's messages, hint and
// help come from src/core/logs). Numbers are grouped as the find bar groups them.
class GoToTexts {
  Q_DECLARE_TR_FUNCTIONS(GoToTexts)

 public:
  static QString timeHint() { return tr("12:34:56 · 2026-09-04 12:34 · +5m · -90s"); }
  static QString notATime() { return tr("Not a time: try 12:34:56, 2026-09-04 12:34, +5m or -90s"); }
  static QString noRecordIndex() {
    return tr("Records need the CSV index: open this document in the Table view first");
  }
  static QString lineDueLater(int64_t line, int percentIndexed) {
    return tr("Waiting for the line index to reach line %1 (%2% indexed)…")
        .arg(groupedNumber(line))
        .arg(percentIndexed);
  }
  static QString linePastTheEnd(int64_t line, int64_t lastLine) {
    return tr("Line %1 is past the end — went to the last line (%2)")
        .arg(groupedNumber(line), groupedNumber(lastLine));
  }
  static QString lineHidden(int64_t line, int64_t shownLine) {
    return tr("Line %1 is hidden by the filter — went to line %2")
        .arg(groupedNumber(line), groupedNumber(shownLine));
  }
  static QString nothingShown() { return tr("The filter shows no lines"); }
  static QString bytePastTheEnd(int64_t offset, int64_t length) {
    return tr("Byte offset %1 is past the end (%2 bytes) — went to the end")
        .arg(groupedNumber(offset), groupedNumber(length));
  }
};

}  // namespace quorin::app
