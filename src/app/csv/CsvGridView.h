#pragma once

#include <QTableView>
#include <QWidget>
#include <expected>
#include <functional>
#include <memory>

#include "csv/CSVDelimiter.h"
#include "dispatch/Executor.h"
#include "dispatch/MainQueue.h"
#include "document/Document.h"
#include "jobs/JobRegistry.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QTimer;

namespace quorin::app {

class CsvTableModel;

// The table that asks its model before opening an editor, so that a refused
// edit says why instead of doing nothing, and that copies the selected cells
// as tab-separated text (rows by line), as spreadsheets do.
class CsvTableView : public QTableView {
  Q_OBJECT

 public:
  using QTableView::QTableView;
  // The selected cells' values, tab-separated, one line per row; at most
  // kMaxCopiedCells cells (a whole-column selection of a huge table is cut).
  QString selectedText() const;
  static constexpr int kMaxCopiedCells = 1'000'000;

 signals:
  void editRefused(const QString& message);

 protected:
  bool edit(const QModelIndex& index, EditTrigger trigger, QEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void contextMenuEvent(QContextMenuEvent* event) override;
};

// The Table view of a delimited document: the grid (see CsvTableModel), a
// delimiter picker (the detected delimiter, the four built-ins and a custom
// one), a "First row is header" switch, the index build's progress with
// Cancel, and a line with the table's size and state and the last message.
//
// Wiring: construct it with the delimiter detect() found (detect() failing
// is "Could not parse as CSV."); forward statusMessage to the status bar and
// switch back to the text on showingRawText, which carries the message to show.
//
// Main thread only. The index is built on `indexQueue` (a serial queue of
// its own when none is given); destroying the view cancels the build.
class CsvGridView : public QWidget {
  Q_OBJECT

 public:
  // The delimiter the document's first 100 KiB suggest, or "Could not parse as CSV.".
  static std::expected<csv::CSVDelimiter, QString> detect(const document::Document& document);

  CsvGridView(std::shared_ptr<document::Document> document, csv::CSVDelimiter detected,
              dispatch::MainQueue& mainQueue, jobs::JobRegistry& jobs, QWidget* parent = nullptr,
              std::shared_ptr<dispatch::Executor> indexQueue = nullptr);
  ~CsvGridView() override;

  CsvTableModel& model() { return *model_; }
  CsvTableView& table() { return *table_; }

  // For the go-to field: the byte offset where a 1-based record starts, or
  // why it cannot be resolved. Safe to call after the view is gone (it then fails).
  std::function<std::expected<int64_t, QString>(int64_t record)> recordResolver() const;
  // Scrolls to a 1-based record (as the rows are labelled) and selects its row.
  void showRecord(int64_t record);
  // Scrolls to the cell holding the byte `offset` and selects it (after Find or Go to in the text).
  void showOffset(int64_t offset);

  // What the picker offers: index 0–3 the built-ins, 4 a custom delimiter.
  QComboBox& delimiterPicker() { return *picker_; }
  // Applies the typed custom delimiter; false (and the refusal shown under the field) when refused.
  bool applyCustomDelimiter(const QString& typed);
  QString customDelimiterError() const;
  QString lastMessage() const;

 signals:
  void statusMessage(const QString& text, bool warning);
  // The document no longer parses as a table; `message` says so for the status bar.
  void showingRawText(const QString& message);

 private:
  void showMessage(const QString& text, bool warning);
  void pickerChanged(int item);
  void updateBuildState();
  void updateSummary();
  void poll();
  void showCell(const QModelIndex& cell);

  std::shared_ptr<document::Document> document_;
  std::shared_ptr<dispatch::Executor> indexQueue_;
  csv::CSVDelimiter detected_;
  CsvTableModel* model_ = nullptr;
  CsvTableView* table_ = nullptr;
  QComboBox* picker_ = nullptr;
  QLineEdit* custom_ = nullptr;
  QLabel* customError_ = nullptr;
  QCheckBox* header_ = nullptr;
  QProgressBar* progress_ = nullptr;
  QPushButton* cancel_ = nullptr;
  QLabel* summary_ = nullptr;
  QLabel* message_ = nullptr;
  QTimer* poll_ = nullptr;
  QTimer* messageTimer_ = nullptr;
};

}  // namespace quorin::app
