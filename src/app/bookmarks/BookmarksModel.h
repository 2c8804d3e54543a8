#pragma once

#include <QAbstractTableModel>
#include <QPointer>
#include <QString>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "bookmarks/BookmarkSet.h"
#include "bookmarks/Sidecar.h"

namespace quorin::app {

class DocumentTab;

// The rows of the bookmarks panel: every bookmark of a tab in line order
// (line, time, note, line text), then the bookmarks that were not found
// again in the changed file. Taken from the set on each change; the time and
// text of a row are read when the view asks for it, which it does for the
// rows on screen only, so 100,000 bookmarks cost a copy of their lines and
// notes, not 100,000 line reads. The note is edited in place.
// Thread-safety: GUI thread only.
class BookmarksModel final : public QAbstractTableModel {
  Q_OBJECT

 public:
  enum Column { lineColumn, timeColumn, noteColumn, textColumn, columnCount_ };
  // Line texts are cut to this many bytes in the rows (and the CSV).
  static constexpr int64_t kTextBytes = 512;

  explicit BookmarksModel(QObject* parent = nullptr);

  // Follows `tab`'s bookmarks (none: null) until another tab is shown.
  void showTab(DocumentTab* tab);
  DocumentTab* tab() const { return tab_; }

  // The bookmark's line of a row; none for a lost one.
  std::optional<int64_t> lineAt(int row) const;
  bool isLost(int row) const { return row >= static_cast<int>(marks_.size()); }
  // The line a lost bookmark had; none for a bookmark found.
  std::optional<int64_t> lostLineAt(int row) const;

  // The rows as CSV (RFC 4180: a header "line,time,note,text", fields quoted
  // when they hold a comma, a quote or a line break, lines ending in CRLF).
  std::string toCsv() const;

  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
  Qt::ItemFlags flags(const QModelIndex& index) const override;
  bool setData(const QModelIndex& index, const QVariant& value, int role) override;

 private:
  void reload();
  QString timeOf(int64_t line) const;
  QString textOf(int64_t line) const;
  QString cell(int row, int column) const;

  QPointer<DocumentTab> tab_;
  QMetaObject::Connection changes_;
  std::vector<bookmarks::Bookmark> marks_;
  std::vector<bookmarks::SidecarBookmark> lost_;
  // Rows read so far, dropped on every change (and when they grow past a few screens' worth).
  mutable std::unordered_map<int64_t, QString> times_;
  mutable std::unordered_map<int64_t, QString> texts_;
};

// A field of a CSV line as RFC 4180 quotes it.
std::string csvField(const std::string& text);

}  // namespace quorin::app
