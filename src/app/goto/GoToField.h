#pragma once

#include <QWidget>
#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <optional>

#include "app/EditorSurface.h"
#include "dispatch/MainQueue.h"
#include "document/Document.h"
#include "logs/GoToTarget.h"

class QLabel;
class QLineEdit;

namespace quorin::app {

struct GoToFieldConfig {
  uint64_t indexPollNs = 200'000'000;  // how often a wait for the line index looks again
};

// The go-to field of one document tab (Ctrl+L): a line, a percentage of the
// file, a byte offset, a CSV record, a time or a time offset. Why a text
// cannot be followed is shown under the field in the parser's own words. Its
// time form (Go to Time) takes times and offsets only.
//
// Lines come from the document's line index. A line the index has not
// reached yet is waited for (with the index's progress under the field)
// rather than guessed, because a line number is usually copied from
// somewhere that means exactly that line; typing or Esc stops the wait.
// Percentages land on the start of the line holding that byte, byte offsets
// exactly (moved back to the start of a character cut in half). Targets past
// the end land on the end and say so in the status bar, and so do targets
// on a line a filter hides, which land on the nearest shown line.
//
// Thread-safety: main thread only. Lifetime: the surface must stay alive
// while the field is used; the destructor does not touch it, and a pending
// look at the line index dies with the field.
class GoToField final : public QWidget {
  Q_OBJECT

 public:
  // The byte offset where a 1-based record starts, or why it cannot be
  // given; owned by whoever keeps the CSV index. May be empty.
  using RecordResolver = std::function<std::expected<int64_t, QString>(int64_t record)>;
  // Where a time or a time offset lands (a line start, and what to say in
  // the status bar), or why it cannot; owned by whoever keeps the log index.
  // Empty: the document has no timestamps.
  struct TimeLanding {
    int64_t offset = 0;
    QString notice;
  };
  using TimeResolver = std::function<std::expected<TimeLanding, QString>(const logs::TimeInput& input)>;

  GoToField(std::shared_ptr<document::Document> document, EditorSurface& surface,
            dispatch::MainQueue& mainQueue, QWidget* parent = nullptr, RecordResolver records = {},
            GoToFieldConfig config = {});
  ~GoToField() override;

  void setRecordResolver(RecordResolver records) { records_ = std::move(records); }
  void setTimeResolver(TimeResolver times) { times_ = std::move(times); }

  // Ctrl+L: show, focus and select the text.
  void activate();
  // Go to Time: the same field, taking times and time offsets only.
  void activateTime();
  bool isTimeForm() const { return timeForm_; }
  // Esc: hide and stop any wait.
  void close();
  // Creates the Ctrl+L shortcut on `scope`, usually the tab.
  void installShortcuts(QWidget* scope);

  // Enter: go where the text says, or say why not.
  void go();

  QString text() const;
  void setText(const QString& text);
  QString errorText() const;
  QString helpText() const;
  bool isWaitingForIndex() const { return waitingFor_.has_value(); }

 signals:
  // The caret was moved to `offset`; the field has closed.
  void jumped(qint64 offset);
  void closed();

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void follow(const logs::GoToTarget& target);
  void followTime(const logs::TimeInput& input);
  void showForm(bool time);
  void updateHelp();
  void goToLine(int64_t line);
  void land(int64_t offset, QString note = {});
  void showError(const QString& text);
  void stopWaiting();

  std::shared_ptr<document::Document> document_;
  EditorSurface& surface_;
  dispatch::MainQueue& mainQueue_;
  RecordResolver records_;
  TimeResolver times_;
  bool timeForm_ = false;
  const GoToFieldConfig config_;
  std::shared_ptr<GoToField*> alive_;  // lets queued polls see that the field is gone

  QLineEdit* input_ = nullptr;
  QLabel* help_ = nullptr;
  QLabel* error_ = nullptr;
  std::optional<int64_t> waitingFor_;  // the 1-based line being waited for
  uint64_t waitGeneration_ = 0;
};

}  // namespace quorin::app
