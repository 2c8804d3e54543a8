#pragma once

#include <QCoreApplication>
#include <QString>

#include "logs/Severity.h"

namespace quorin::app {

// What the application says about log levels and times, in one place (the
// navigator's own messages come from src/core/logs).
class LogTexts {
  Q_DECLARE_TR_FUNCTIONS(LogTexts)

 public:
  // "errors", "warnings or errors", "info-or-above messages": what a step looks for.
  static QString whatLevel(logs::Level atLeast) {
    switch (atLeast) {
      case logs::Level::error: return tr("errors");
      case logs::Level::warning: return tr("warnings or errors");
      default: return tr("%1-or-above messages").arg(levelName(atLeast));
    }
  }
  static QString noMore(logs::Level atLeast, bool forward) {
    return forward ? tr("No more %1 below").arg(whatLevel(atLeast))
                   : tr("No more %1 above").arg(whatLevel(atLeast));
  }
  static QString stillIndexing(logs::Level atLeast, bool forward, int percent) {
    return forward ? tr("No %1 below in the part read so far — the log index has read %2% of the document")
                         .arg(whatLevel(atLeast))
                         .arg(percent)
                   : tr("No %1 above in the part read so far — the log index has read %2% of the document")
                         .arg(whatLevel(atLeast))
                         .arg(percent);
  }
  static QString notReadYet() {
    return tr("The log index has not read this document yet — try again in a moment");
  }
  static QString levelName(logs::Level level) {
    const std::string_view name = logs::name(level);
    return QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size()));
  }
};

}  // namespace quorin::app
