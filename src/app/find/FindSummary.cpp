#include "app/find/FindSummary.h"

#include <QCoreApplication>
#include <algorithm>

namespace quorin::app {
namespace {

QString tr(const char* text) { return QCoreApplication::translate("quorin::app::FindBar", text); }

}  // namespace

QString groupedNumber(int64_t value) {
  const bool negative = value < 0;
  QString digits = QString::number(negative ? -static_cast<uint64_t>(value) : static_cast<uint64_t>(value));
  for (qsizetype at = digits.size() - 3; at > 0; at -= 3) digits.insert(at, QLatin1Char(','));
  return negative ? QLatin1Char('-') + digits : digits;
}

QString countingSummary(const search::SearchProgress& progress) {
  // The line total is an estimate while the index is still being built: never claim 100% early.
  int percent = 0;
  if (progress.totalLines > 0) {
    percent = static_cast<int>(std::clamp<int64_t>(progress.linesScanned * 100 / progress.totalLines, 0, 99));
  }
  return tr("Searching… %1% · %2 so far")
      .arg(percent)
      .arg(progress.matchesSoFar == 1 ? tr("1 match")
                                      : tr("%1 matches").arg(groupedNumber(progress.matchesSoFar)));
}

QString resultSummary(const search::SearchResult& result, int64_t stored, int64_t cap,
                      std::optional<int64_t> current) {
  if (result.compileError) return tr("Invalid regex: %1").arg(QString::fromStdString(*result.compileError));
  const int64_t total = result.totalMatchCount;
  if (result.timedOut)
    return total > 0 ? tr("%1 matches (timed out)").arg(groupedNumber(total)) : tr("Timed out");
  if (result.truncated) {
    return tr("%1 matches · first %2 highlighted (over the %3 cap; Replace All needs a narrower query)")
        .arg(groupedNumber(total), groupedNumber(stored), groupedNumber(cap));
  }
  if (total == 0) return tr("No matches");
  if (current) return tr("%1 of %2").arg(groupedNumber(*current + 1), groupedNumber(total));
  return total == 1 ? tr("1 match") : tr("%1 matches").arg(groupedNumber(total));
}

QString staleSuffix() { return tr(" (stale)"); }

QString staleToolTip() { return tr("The text changed since this count; it is counted again when you pause"); }

QString wrapNote(bool backward) {
  return backward ? tr("Search wrapped to the end") : tr("Search wrapped to the start");
}

QString allMatchesHiddenNote() { return tr("Every match is on a line the filter hides"); }

QString replacedNote(int64_t count) {
  return count == 1 ? tr("Replaced 1 match") : tr("Replaced %1 matches").arg(groupedNumber(count));
}

QString nothingReplacedSuffix() { return tr(" — nothing was replaced"); }

QString replaceAllCancelledNote() { return tr("Replace All cancelled; nothing was replaced"); }

QString textChangedDuringCountNote() {
  return tr("The text changed while matches were counted; nothing was replaced");
}

QString replacePreviewNote(const QString& replacement) {
  // Long replacements are cut, and line breaks shown, so the tooltip stays one short line.
  QString shown = replacement.left(200);
  shown.replace('\n', QStringLiteral("\\n"))
      .replace('\r', QStringLiteral("\\r"))
      .replace('\t', QStringLiteral("\\t"));
  if (replacement.size() > 200) shown += QStringLiteral("…");
  return tr("Next replacement: “%1”").arg(shown);
}

QString replacePreviewUnknownNote() {
  return tr("The next replacement is shown once the matches are counted");
}

}  // namespace quorin::app
