#pragma once

#include <QCoreApplication>
#include <QString>
#include <cstdint>

#include "base/ByteCount.h"

namespace quorin::app {

// The texts the filter shows, in one place.
class FilterTexts {
  Q_DECLARE_TR_FUNCTIONS(FilterTexts)

 public:
  static QString grouped(int64_t number) { return QString::fromStdString(base::groupDigits(number)); }
  // "12,345 of 11,018,676 lines shown"
  static QString shown(int64_t shownLines, int64_t totalLines) {
    return tr("%1 of %2 lines shown").arg(grouped(shownLines), grouped(totalLines));
  }
  // "Filtering… 34%"
  static QString progress(int64_t linesEvaluated, int64_t totalLines) {
    const auto percent = totalLines > 0 ? std::min<int64_t>(99, linesEvaluated * 100 / totalLines) : 0;
    return tr("Filtering… %1%").arg(percent);
  }
  static QString updating() { return tr("Updating filter…"); }
  static QString tooMuchToCopy(int64_t bytes) {
    return tr("Too many lines to copy (%1): save them to a file instead")
        .arg(QString::fromStdString(base::formatByteCount(bytes)));
  }
  static QString badNamedFilters(const QString& reason) {
    return tr("The saved named filters could not be read (%1); they are left as they are").arg(reason);
  }
};

}  // namespace quorin::app
