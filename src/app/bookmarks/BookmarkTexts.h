#pragma once

#include <QCoreApplication>
#include <QString>

#include "app/find/FindSummary.h"

namespace quorin::app {

// What the application says about bookmarks, in one place. Numbers are
// grouped as the find bar groups them ("1,234").
class BookmarkTexts {
  Q_DECLARE_TR_FUNCTIONS(BookmarkTexts)

 public:
  static QString line(int64_t line0) { return groupedNumber(line0 + 1); }
  static QString wrapped(bool forward) {
    return forward ? tr("Wrapped to the first bookmark") : tr("Wrapped to the last bookmark");
  }
  static QString none() { return tr("No bookmarks — Ctrl+F2 bookmarks the caret line"); }
  static QString noneShown() { return tr("Every bookmark is on a line the filter hides"); }
  static QString saveFailed(const QString& reason) { return tr("Bookmarks could not be saved: ") + reason; }
  static QString lost() { return tr("Lost — the line was not found in the changed file"); }
  static QString restored(int64_t count, int64_t lost) {
    const QString found =
        count == 1 ? tr("1 bookmark restored") : tr("%1 bookmarks restored").arg(groupedNumber(count));
    if (lost == 0) return found;
    return tr("%1; %2 not found in the changed file (listed in the Bookmarks panel)")
        .arg(found, groupedNumber(lost));
  }
  static QString needFindText() { return tr("Type the text to bookmark in the find bar first"); }
  static QString searching() { return tr("Bookmarking every match…"); }
  static QString bookmarkedMatches(int64_t lines) {
    return lines == 1 ? tr("Bookmarked 1 line with a match")
                      : tr("Bookmarked %1 lines with a match").arg(groupedNumber(lines));
  }
  static QString matchCap(int64_t cap) {
    return tr("; only the first %1 matches were bookmarked").arg(groupedNumber(cap));
  }
  static QString matchTimedOut() { return tr("; the search timed out before the end"); }
  static QString textChanged() { return tr("The text changed while searching — nothing was bookmarked"); }
  static QString noFilter() { return tr("No filter is on: every line is shown"); }
  static QString bookmarkedShown(int64_t lines, bool capped, int64_t cap) {
    QString text = lines == 1 ? tr("Bookmarked 1 shown line")
                              : tr("Bookmarked %1 shown lines").arg(groupedNumber(lines));
    if (capped) text += tr("; only the first %1").arg(groupedNumber(cap));
    return text;
  }
  static QString cleared(int64_t count) {
    return count == 1 ? tr("Cleared 1 bookmark") : tr("Cleared %1 bookmarks").arg(groupedNumber(count));
  }
  // "+2 min 14 s since bookmark at line 1,234".
  static QString sinceBookmark(const QString& duration, int64_t line0) {
    return tr("%1 since bookmark at line %2").arg(duration, line(line0));
  }
  static QString noteTitle(int64_t line0) { return tr("Note on Line %1").arg(line(line0)); }
};

}  // namespace quorin::app
