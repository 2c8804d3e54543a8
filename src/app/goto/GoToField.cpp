#include "app/goto/GoToField.h"

#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QShortcut>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>
#include <cstring>

#include "app/goto/GoToTexts.h"
#include "app/view/ShownLines.h"
#include "text/LineEnding.h"

namespace quorin::app {
namespace {

QString qt(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

constexpr int64_t kLineReach = 1 << 20;  // how far back a percentage looks for its line's start
constexpr int64_t kStep = 64 * 1024;

// The start of the line holding `offset`, or `offset` itself inside a line
// longer than the reach.
int64_t lineStartAtOrBefore(const storage::PieceTableSnapshot& text, int64_t offset) {
  const uint8_t terminator = text::lineTerminator(text.originalBuffer().lineEnding());
  const int64_t floor = std::max<int64_t>(offset - kLineReach, 0);
  std::vector<uint8_t> buffer;
  for (int64_t high = offset; high > floor;) {
    const int64_t low = std::max(floor, high - kStep);
    buffer.resize(static_cast<size_t>(high - low));
    const int64_t got = text.copyBytes({low, high}, buffer.data());
    if (got <= 0) break;
    if (const void* hit = memrchr(buffer.data(), terminator, static_cast<size_t>(got)))
      return low + (static_cast<const uint8_t*>(hit) - buffer.data()) + 1;
    high = low;
  }
  return floor == 0 ? 0 : offset;
}

// Moves an offset that falls inside a UTF-8 sequence back to its first byte.
int64_t characterStart(const storage::PieceTableSnapshot& text, int64_t offset) {
  for (int back = 0; back < 3 && offset > 0; ++back) {
    const auto byte = text.byte(offset);
    if (!byte || (*byte & 0xC0) != 0x80) break;
    --offset;
  }
  return offset;
}

}  // namespace

GoToField::GoToField(std::shared_ptr<document::Document> document, EditorSurface& surface,
                     dispatch::MainQueue& mainQueue, QWidget* parent, RecordResolver records,
                     GoToFieldConfig config)
    : QWidget(parent),
      document_(std::move(document)),
      surface_(surface),
      mainQueue_(mainQueue),
      records_(std::move(records)),
      config_(config),
      alive_(std::make_shared<GoToField*>(this)) {
  setObjectName("goToField");
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(6, 4, 6, 4);
  layout->setSpacing(2);
  input_ = new QLineEdit(this);
  input_->setObjectName("goToInput");
  input_->installEventFilter(this);
  help_ = new QLabel(this);
  help_->setObjectName("goToHelp");
  help_->setWordWrap(true);
  help_->setStyleSheet("color: palette(mid)");
  error_ = new QLabel(this);
  error_->setObjectName("goToError");
  error_->setWordWrap(true);
  error_->setStyleSheet("color: #c02020");
  error_->hide();
  layout->addWidget(input_);
  layout->addWidget(error_);
  layout->addWidget(help_);
  connect(input_, &QLineEdit::textEdited, this, [this] {
    stopWaiting();
    showError({});
    updateHelp();
  });
  showForm(false);
  auto* escape = new QShortcut(QKeySequence(Qt::Key_Escape), this);
  escape->setContext(Qt::WidgetWithChildrenShortcut);
  connect(escape, &QShortcut::activated, this, &GoToField::close);
  hide();  // until Ctrl+L
}

GoToField::~GoToField() = default;

void GoToField::installShortcuts(QWidget* scope) {
  auto* shortcut = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_L), scope);
  shortcut->setContext(Qt::WidgetWithChildrenShortcut);
  connect(shortcut, &QShortcut::activated, this, &GoToField::activate);
}

void GoToField::activate() {
  showForm(false);
  show();
  input_->setFocus(Qt::ShortcutFocusReason);
  input_->selectAll();
}

void GoToField::activateTime() {
  showForm(true);
  show();
  input_->setFocus(Qt::ShortcutFocusReason);
  input_->selectAll();
}

void GoToField::close() {
  stopWaiting();
  showError({});
  hide();
  emit closed();
}

QString GoToField::text() const { return input_->text(); }
void GoToField::setText(const QString& text) {
  stopWaiting();
  showError({});
  input_->setText(text);
  updateHelp();
}
QString GoToField::errorText() const { return error_->text(); }
QString GoToField::helpText() const { return help_->text(); }

void GoToField::showForm(bool time) {
  timeForm_ = time;
  input_->setPlaceholderText(time ? GoToTexts::timeHint() : qt(logs::kGoToHint));
  input_->setToolTip(time ? qt(logs::kGoToTimeHelp) : qt(logs::kGoToHelp));
  updateHelp();
}

void GoToField::updateHelp() {
  // What is being typed decides: a time, in either form, is read against the caret line's day.
  bool time = timeForm_;
  if (!time) {
    const auto parsed = logs::parseGoToTarget(input_->text().toStdString());
    time = parsed && (std::holds_alternative<logs::TimeTarget>(*parsed) ||
                      std::holds_alternative<logs::TimeOffsetTarget>(*parsed));
  }
  help_->setText(time ? qt(logs::kGoToTimeHelp) : qt(logs::kGoToHelp));
}

void GoToField::go() {
  stopWaiting();
  if (timeForm_) {
    const auto time = logs::parseTimeInput(input_->text().toStdString());
    if (!time) {
      // The general hint lists forms this field does not take.
      showError(time.error().kind == logs::ParseFailure::Kind::notRecognized
                    ? GoToTexts::notATime()
                    : QString::fromStdString(time.error().message()));
      return;
    }
    followTime(*time);
    return;
  }
  const auto parsed = logs::parseGoToTarget(input_->text().toStdString());
  if (!parsed) {
    showError(QString::fromStdString(parsed.error().message()));
    return;
  }
  follow(*parsed);
}

void GoToField::follow(const logs::GoToTarget& target) {
  const storage::PieceTableSnapshot text = document_->snapshot().text;
  const int64_t total = text.totalLength();
  if (const auto* line = std::get_if<logs::LineTarget>(&target)) {
    goToLine(line->line);
  } else if (const auto* percent = std::get_if<logs::PercentTarget>(&target)) {
    const auto offset =
        static_cast<int64_t>(std::floor(static_cast<double>(total) * percent->percent / 100.0));
    land(lineStartAtOrBefore(text, std::clamp<int64_t>(offset, 0, total)));
  } else if (const auto* byte = std::get_if<logs::ByteTarget>(&target)) {
    if (byte->offset > total) {
      land(total, GoToTexts::bytePastTheEnd(byte->offset, total));
    } else {
      land(characterStart(text, byte->offset));
    }
  } else if (const auto* record = std::get_if<logs::RecordTarget>(&target)) {
    if (!records_) {
      showError(GoToTexts::noRecordIndex());
      return;
    }
    const auto offset = records_(record->record);
    if (!offset) {
      showError(offset.error());
      return;
    }
    land(std::clamp<int64_t>(*offset, 0, total));
  } else if (const auto* time = std::get_if<logs::TimeTarget>(&target)) {
    followTime(*time);
  } else {
    followTime(std::get<logs::TimeOffsetTarget>(target));
  }
}

void GoToField::followTime(const logs::TimeInput& input) {
  // Times and time offsets need a log whose lines carry timestamps.
  if (!times_) {
    showError(qt(logs::kNoTimestampsMessage));
    return;
  }
  const auto landing = times_(input);
  if (!landing) {
    showError(landing.error());
    return;
  }
  land(std::clamp<int64_t>(landing->offset, 0, document_->length()), landing->notice);
}

void GoToField::goToLine(int64_t line) {
  const storage::LineIndexSnapshot lines = document_->snapshot().lines;
  if (const auto start = lines.lineStart(line - 1)) {
    land(*start);
    return;
  }
  if (lines.isComplete) {
    const int64_t count = std::max<int64_t>(lines.knownLineCount(), 1);
    land(lines.lineStart(count - 1).value_or(0), GoToTexts::linePastTheEnd(line, count));
    return;
  }
  // Not indexed yet: wait for the index and look again every so often.
  waitingFor_ = line;
  const uint64_t generation = ++waitGeneration_;
  showError(
      GoToTexts::lineDueLater(line, static_cast<int>(std::clamp(lines.fractionScanned(), 0.0, 1.0) * 100)));
  std::weak_ptr<GoToField*> alive = alive_;
  mainQueue_.postAfter(config_.indexPollNs, [alive, generation] {
    const auto field = alive.lock();
    if (!field) return;
    GoToField& self = **field;
    if (self.waitGeneration_ != generation || !self.waitingFor_) return;
    const int64_t target = *self.waitingFor_;
    self.waitingFor_.reset();
    self.goToLine(target);
  });
}

void GoToField::land(int64_t offset, QString note) {
  stopWaiting();
  showError({});
  if (const search::LineProjection* shown = surface_.shownLines()) {
    // A target the filter hides lands on the nearest line it shows, and says so.
    const storage::LineIndexSnapshot lines = document_->snapshot().lines;
    const auto line = lines.lineContaining(offset);
    if (line && !shown->isVisible(*line)) {
      const auto nearest = nearestShownLine(*shown, *line);
      const auto start = nearest ? lines.lineStart(*nearest) : std::nullopt;
      if (start) {
        offset = *start;
        note = GoToTexts::lineHidden(*line + 1, *nearest + 1);
      } else {
        note = GoToTexts::nothingShown();
      }
    }
  }
  surface_.select(offset, offset);
  if (!note.isEmpty()) surface_.showStatusMessage(note);
  hide();
  emit jumped(offset);
  emit closed();
}

void GoToField::showError(const QString& text) {
  error_->setText(text);
  error_->setVisible(!text.isEmpty());
}

void GoToField::stopWaiting() {
  waitingFor_.reset();
  ++waitGeneration_;
}

bool GoToField::eventFilter(QObject* watched, QEvent* event) {
  if (watched == input_ && event->type() == QEvent::KeyPress) {
    const int key = static_cast<QKeyEvent*>(event)->key();
    if (key == Qt::Key_Return || key == Qt::Key_Enter) {
      go();
      return true;
    }
    if (key == Qt::Key_Escape) {
      close();
      return true;
    }
  }
  return QWidget::eventFilter(watched, event);
}

}  // namespace quorin::app
