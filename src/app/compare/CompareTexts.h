#pragma once

#include <QCoreApplication>
#include <QString>

namespace quorin::app {

// What the compare window says about its state, in one place (the core's
// compare texts — summaries, notices, errors — come from src/core/compare).
class CompareTexts {
  Q_DECLARE_TR_FUNCTIONS(CompareTexts)

 public:
  static QString otherFileItem() { return tr("Other File…"); }
  static QString chooseSomething() { return tr("Choose a document or a file to compare with."); }
  static QString comparing() { return tr("Comparing…"); }
  static QString comparingProgress() { return tr("Comparing… %p%"); }
  static QString readingProgress(const QString& name) { return tr("Reading %1… %p%").arg(name); }
  static QString waitingFor(const QString& name) { return tr("Waiting for %1 to be read…").arg(name); }
  static QString cancelled() { return tr("Comparison cancelled"); }
  static QString changeOf(qsizetype block, qsizetype blocks) {
    return tr(" · change %1 of %2").arg(block).arg(blocks);
  }
  static QString staleSuffix() { return tr(" · the text has changed since — Compare Again to refresh"); }
  static QString noLongerOpen(const QString& name) { return tr("“%1” is no longer open.").arg(name); }
  static QString nothingToReport() { return tr("There is no comparison to report."); }
  static QString title(const QString& left) { return tr("Compare — %1").arg(left); }
  static QString title(const QString& left, const QString& right) {
    return tr("Compare — %1 ↔ %2").arg(left, right);
  }
};

}  // namespace quorin::app
