#pragma once

#include <QCoreApplication>
#include <QLocale>
#include <QString>
#include <cstdint>

namespace quorin::app {

// What the Table view says, in one place (the parse-state announcements and
// the core's refusals come from src/core/csv). Numbers are grouped as the
// user's locale groups them.
class CsvTexts {
  Q_DECLARE_TR_FUNCTIONS(CsvTexts)

 public:
  static QString grouped(int64_t number) { return QLocale().toString(static_cast<qlonglong>(number)); }

  static QString stillIndexing() { return tr("Table still indexing — cells can be edited once it finishes"); }
  static QString cancelled() {
    return tr("Indexing cancelled — the table is read-only until it is indexed again");
  }
  static QString column(int number) { return tr("Column %1").arg(number); }
  static QString malformedQuotes(int64_t record) {
    return tr("Record %1 is malformed: text after a closing quote, or a quote never closed")
        .arg(grouped(record));
  }
  static QString malformedFields(int64_t record, int64_t fields, int64_t expected) {
    return tr("Record %1 is malformed: %2 fields, %3 expected")
        .arg(grouped(record), grouped(fields), grouped(expected));
  }
  static QString recordsNotReady() { return tr("Table still indexing — try again in a moment"); }
  static QString noRecords() { return tr("The table has no records yet"); }
  static QString recordNotIndexedYet(int64_t record, int64_t indexed) {
    return tr("Record %1 isn't indexed yet — %2 records so far").arg(grouped(record), grouped(indexed));
  }
  static QString viewClosed() { return tr("The Table view is closed"); }
  static QString summary(int64_t records, int columns) {
    return (records == 1 ? tr("1 record") : tr("%1 records").arg(grouped(records))) +
           (columns == 1 ? tr(" · 1 column") : tr(" · %1 columns").arg(columns));
  }
  static QString soFar() { return tr(" so far"); }
  static QString detectedSuffix() { return tr(" (detected)"); }
};

}  // namespace quorin::app
