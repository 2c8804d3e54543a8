#pragma once

#include <QString>
#include <QWidget>
#include <expected>
#include <memory>
#include <optional>
#include <vector>

#include "app/compare/CompareRowModel.h"
#include "compare/Comparison.h"
#include "dispatch/MainQueue.h"
#include "document/Document.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QProgressBar;
class QPushButton;
class QScrollArea;
class QTableView;

namespace quorin::app {

// An open document the window can compare against.
struct CompareCandidate {
  QString name;
  std::weak_ptr<document::Document> document;
};

// The compare window: the current document (left) against another open
// document or a file (right), side by side with aligned rows, fillers and
// tinted changes; next/previous change; ignore whitespace and ignore case;
// every notice of the comparison; "Save Report…". The comparison runs off
// the main thread with progress and Cancel; a file chosen here is opened as
// a document of its own, and compared once its line index is complete.
//
// Wiring: `new CompareWindow(document, name, mainQueue, mainWindow)`, then
// setOpenDocuments() and show(); it is a non-modal top-level window that
// deletes itself when closed.
//
// Main thread only.
class CompareWindow : public QWidget {
  Q_OBJECT

 public:
  CompareWindow(std::shared_ptr<document::Document> current, QString currentName,
                dispatch::MainQueue& mainQueue, QWidget* parent = nullptr);
  ~CompareWindow() override;

  // The other open documents the "Compare with" list offers.
  void setOpenDocuments(std::vector<CompareCandidate> candidates);
  // Compares with an open document, or with a file (opened here).
  void compareWithDocument(std::shared_ptr<document::Document> other, QString name);
  void compareWithFile(const QString& path);
  // Runs the comparison again with the current texts and options.
  void compareAgain();
  void cancel();
  void setIgnoreWhitespace(bool on);
  void setIgnoreCase(bool on);

  // Moves to the next or previous change; false when there is none.
  bool goToNextChange();
  bool goToPreviousChange();

  // The report of the comparison on screen, written to `path`; the error is
  // "Couldn't save the report" and the reason, for the alert.
  std::expected<void, QString> saveReportTo(const QString& path) const;

  bool isRunning() const { return job_ != nullptr || waitingForIndex_; }
  const std::optional<compare::CompareOutcome>& outcome() const { return outcome_; }
  CompareRowModel& rows() { return *rows_; }
  QTableView& table() { return *table_; }
  QString summaryText() const;
  QStringList noticeTexts() const { return notices_; }
  QString errorText() const;

 signals:
  // A comparison finished, failed or was cancelled.
  void finished();

 private:
  void setRight(std::shared_ptr<document::Document> other, QString name, bool openedHere);
  void start();
  void startWhenIndexed();
  void startIndexed();
  void finish(uint64_t generation,
              const std::expected<compare::CompareOutcome, compare::CompareError>& result,
              std::shared_ptr<compare::CompareRequest> request);
  void fail(const QString& message);
  void showRow(int row);
  void updateControls();
  void updateSummary();
  void chooseOtherFile();
  void saveReportInteractively();
  void watch(const std::shared_ptr<document::Document>& document, int& token);

  std::shared_ptr<document::Document> left_;
  QString leftName_;
  std::shared_ptr<document::Document> right_;
  QString rightName_;
  bool rightOpenedHere_ = false;
  dispatch::MainQueue& mainQueue_;
  std::vector<CompareCandidate> candidates_;
  compare::LineKeyOptions options_;

  std::shared_ptr<compare::CompareJob> job_;
  uint64_t generation_ = 0;
  bool waitingForIndex_ = false;
  std::shared_ptr<compare::CompareRequest> request_;  // of the comparison on screen
  std::optional<compare::CompareOutcome> outcome_;
  QStringList notices_;
  QString error_;
  bool stale_ = false;
  int leftListener_ = 0;
  int rightListener_ = 0;

  CompareRowModel* rows_ = nullptr;
  QTableView* table_ = nullptr;
  QComboBox* with_ = nullptr;
  QCheckBox* ignoreWhitespace_ = nullptr;
  QCheckBox* ignoreCase_ = nullptr;
  QPushButton* previous_ = nullptr;
  QPushButton* next_ = nullptr;
  QPushButton* again_ = nullptr;
  QPushButton* save_ = nullptr;
  QProgressBar* progress_ = nullptr;
  QPushButton* cancel_ = nullptr;
  QLabel* summary_ = nullptr;
  QLabel* noticesLabel_ = nullptr;
  QScrollArea* noticesArea_ = nullptr;
};

}  // namespace quorin::app
