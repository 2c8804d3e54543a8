#pragma once

#include <QAbstractTableModel>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <expected>
#include <list>
#include <memory>
#include <optional>
#include <unordered_map>

#include "csv/CSVDelimiter.h"
#include "csv/CSVParseState.h"
#include "csv/CSVRecordIndex.h"
#include "dispatch/Executor.h"
#include "dispatch/MainQueue.h"
#include "document/Document.h"
#include "jobs/JobRegistry.h"

namespace quorin::app {

// The rows and cells of a delimited document for a QTableView, backed by a
// CSVRecordIndex. Nothing is decoded up front: a cell's value is read from
// the text snapshot the index describes, split and decoded when the view
// asks for it, and kept in a small cache of recent rows, so a table of ten
// million rows costs the index (10 bytes a row) and no more.
//
// It owns the index's life: the background build (registered as a job), a
// new build when the delimiter changes or the text changes in a way a patch
// cannot describe, and the edit patches. Every change of the document that
// stays inside a few rows (a cell edit from the grid, typing in the text
// view, undo, redo) is patched into the index by scanning just those rows
// again; only an edit that changes how the rest of the file splits (an
// opened quote that never closes) costs a rebuild, during which the old
// index and the snapshot it describes stay on screen, read-only.
//
// The first record is the header row when firstRowIsHeader() (the default):
// it labels the columns, and the records under it are numbered from 1.
//
// Thread-safety: main thread only. The build runs on `indexQueue` and hands
// its end back through the main queue.
class CsvTableModel : public QAbstractTableModel {
  Q_OBJECT

 public:
  // The build's queue is the caller's (the app passes a serial queue; tests a hand-run one).
  CsvTableModel(std::shared_ptr<document::Document> document, csv::CSVDelimiter delimiter,
                dispatch::MainQueue& mainQueue, jobs::JobRegistry& jobs,
                std::shared_ptr<dispatch::Executor> indexQueue, QObject* parent = nullptr);
  ~CsvTableModel() override;

  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
  Qt::ItemFlags flags(const QModelIndex& index) const override;
  // Writes the value into the document as one replacement (and one undo
  // step), quoting it as the delimiter requires and as its field was quoted;
  // typing into a cell past the end of a short row pads it with delimiters.
  // Refused (false, with the reason as a status message) per editRefusal().
  bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;

  // Why cells cannot be edited now, or nothing: a read-only document, an
  // index that is still building or was cancelled, a broken structure.
  std::optional<QString> editRefusal() const;

  const csv::CSVDelimiter& delimiter() const { return delimiter_; }
  // Re-reads the table with another delimiter (a fresh index).
  void setDelimiter(const csv::CSVDelimiter& delimiter);
  bool firstRowIsHeader() const { return header_; }
  void setFirstRowIsHeader(bool header);

  // The index on screen and whether it is complete; progress of a build in flight, if any.
  bool isIndexComplete() const;
  // A build is running or due (the text moved on from the index on screen).
  bool isBuilding() const;
  std::optional<double> buildProgress() const;
  bool buildCancelled() const { return cancelled_; }
  void cancelBuild();
  // Starts over after a cancelled build.
  void rebuild();
  // Brings the row and column counts up to what the growing index holds.
  // The view calls it on a timer while a build runs.
  void sync();

  std::optional<csv::CSVParseState> effectiveState() const { return announcer_.effectiveState(); }
  // 0-based index row of a model row, and back (nothing for the header row).
  int64_t recordRow(int modelRow) const { return modelRow + (header_ ? 1 : 0); }
  std::optional<int> modelRow(int64_t recordRow) const;
  // Whether the index row is malformed (wrong field count or flagged by the scanner).
  bool isMalformed(int64_t recordRow) const;
  // Byte offset of a 1-based record (the go-to field's r1234), numbered as
  // the grid labels its rows (from the first row under the header); past the
  // last record of a complete index, the last one.
  std::expected<int64_t, QString> recordOffset(int64_t record) const;
  // Records indexed so far, the header row not counted.
  int64_t indexedRecords() const;
  // The cell whose field holds the byte `offset` (the header row's offsets: the first row).
  std::optional<QModelIndex> cellAt(int64_t offset) const;
  // The index on screen (it may describe an older text while isBuilding()).
  std::shared_ptr<const csv::CSVRecordIndex> recordIndex() const { return index_; }

 signals:
  // A message for the status bar, for 4 seconds; `warning` while the table is degraded.
  void statusMessage(const QString& text, bool warning);
  // The text no longer reads as a table: the tab shows it as text again.
  void noLongerTable(const QString& message);
  // A build started, finished or was cancelled.
  void buildStateChanged();

 private:
  // A row is read for display up to this many bytes: a quoted field may hold
  // megabytes, and the view shows a line of each cell.
  static constexpr int64_t kDisplayRowBytes = 256 * 1024;

  struct CachedRow {
    QStringList values;
    bool cut = false;  // the row was read only in part
  };
  enum class Grading { fresh, observed };

  void onDocumentChange(const document::DocumentChange& change);
  bool patch(const storage::EditResult& edit, const storage::PieceTableSnapshot& text);
  bool stillATable(const storage::PieceTableSnapshot& text) const;
  void startBuild(Grading grading, bool progressive);
  void scheduleRebuild();
  void buildFinished(uint64_t generation);
  void grade(Grading grading);
  void announce(const std::optional<std::string>& message);
  const CachedRow& row(int64_t recordRow) const;
  QStringList readRow(int64_t recordRow, int64_t maxBytes, bool* cut) const;
  void resetView();
  int computeColumnCount() const;

  std::shared_ptr<document::Document> document_;
  csv::CSVDelimiter delimiter_;
  const uint8_t terminator_;
  dispatch::MainQueue& mainQueue_;
  jobs::JobRegistry& jobs_;
  std::shared_ptr<dispatch::Executor> indexQueue_;
  int listenerToken_ = 0;
  // Lets queued tasks see that the model is gone.
  std::shared_ptr<CsvTableModel*> alive_;

  // What is on screen: an index and the text it describes.
  std::shared_ptr<csv::CSVRecordIndex> index_;
  storage::PieceTableSnapshot text_;
  // A build in flight; when not progressive its index replaces the one on
  // screen only once complete.
  std::shared_ptr<csv::CSVRecordIndex> building_;
  std::optional<storage::PieceTableSnapshot> buildingText_;
  std::shared_ptr<jobs::JobToken> token_;
  uint64_t generation_ = 0;
  Grading buildGrading_ = Grading::fresh;
  bool cancelled_ = false;
  bool stale_ = false;          // the text moved on from index_: a rebuild is due
  uint64_t rebuildTicket_ = 0;  // the latest scheduled rebuild; earlier ones do nothing
  bool inert_ = false;          // no longer a table: ignore everything

  csv::CSVStateAnnouncer announcer_;
  bool header_ = true;
  int rows_ = 0;
  int columns_ = 0;
  QStringList headerLabels_;
  int64_t expectedColumns_ = 0;

  mutable std::unordered_map<int64_t, std::list<std::pair<int64_t, CachedRow>>::iterator> cacheIndex_;
  mutable std::list<std::pair<int64_t, CachedRow>> cache_;  // most recent first
};

}  // namespace quorin::app
