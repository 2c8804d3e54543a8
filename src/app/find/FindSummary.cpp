#include "app/find/FindSummary.h"

#include <algorithm>

namespace quorin::app {

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
  return QStringLiteral("Searching… %1% · %2 so far")
      .arg(percent)
      .arg(progress.matchesSoFar == 1 ? QStringLiteral("1 match")
                                      : groupedNumber(progress.matchesSoFar) + " matches");
}

QString resultSummary(const search::SearchResult& result, int64_t stored, int64_t cap,
                      std::optional<int64_t> current) {
  if (result.compileError) return "Invalid regex: " + QString::fromStdString(*result.compileError);
  const int64_t total = result.totalMatchCount;
  if (result.timedOut)
    return total > 0 ? groupedNumber(total) + " matches (timed out)" : QStringLiteral("Timed out");
  if (result.truncated) {
    return groupedNumber(total) + " matches · first " + groupedNumber(stored) + " highlighted (over the " +
           groupedNumber(cap) + " cap; Replace All needs a narrower query)";
  }
  if (total == 0) return QStringLiteral("No matches");
  if (current) return groupedNumber(*current + 1) + " of " + groupedNumber(total);
  return total == 1 ? QStringLiteral("1 match") : groupedNumber(total) + " matches";
}

}  // namespace quorin::app
