#pragma once

#include <QDockWidget>
#include <QPointer>
#include <optional>

class QLabel;
class QTableView;

namespace quorin::app {

class BookmarksModel;
class DocumentTab;

// View ▸ Bookmarks: a dock listing the current tab's bookmarks (line, time,
// note, text) and those lost in a changed file. Double-click or Enter goes
// to the line; Delete removes the selected bookmarks (lost ones too); typing in the Note
// column edits the note in place; Export writes the list as CSV.
// Thread-safety: GUI thread only.
class BookmarksPanel final : public QDockWidget {
  Q_OBJECT

 public:
  explicit BookmarksPanel(QWidget* parent = nullptr);

  // Shows `tab`'s bookmarks (none: null) until another tab is shown.
  void showTab(DocumentTab* tab);
  BookmarksModel* model() const { return model_; }
  QTableView* table() const { return table_; }

  // Goes to the bookmark of `row` in its tab.
  void goToRow(int row);
  // Removes the bookmarks of the selected rows, and the lost ones selected.
  void removeSelected();
  // Writes the list as CSV to `path`; the reason when it could not.
  std::optional<QString> exportCsv(const QString& path) const;

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void chooseAndExport();
  void updateCount();

  BookmarksModel* model_;
  QTableView* table_;
  QLabel* count_;
};

}  // namespace quorin::app
