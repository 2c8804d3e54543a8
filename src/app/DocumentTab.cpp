#include "app/DocumentTab.h"

#include <QFileInfo>
#include <QHBoxLayout>
#include <QLocale>
#include <QMessageBox>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

#include "app/csv/CsvGridView.h"
#include "app/filter/FilterBar.h"
#include "app/find/FindBar.h"
#include "app/goto/GoToField.h"
#include "app/goto/GoToTexts.h"
#include "app/logs/LogPicturesWiring.h"
#include "app/logs/OverviewStrip.h"
#include "app/view/TextView.h"
#include "base/ByteCount.h"
#include "text/BinarySniff.h"
#include "text/DetectedEncoding.h"

namespace quorin::app {
namespace {

QString qt(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

// Asks a question with the given buttons; returns the chosen one's text.
QString ask(QWidget* parent, QMessageBox::Icon icon, const QString& text, const QStringList& buttons,
            int defaultButton) {
  QMessageBox box(icon, QStringLiteral("Quorin"), text, QMessageBox::NoButton, parent);
  std::vector<QPushButton*> made;
  for (const QString& label : buttons) made.push_back(box.addButton(label, QMessageBox::AcceptRole));
  box.setDefaultButton(made[static_cast<size_t>(defaultButton)]);
  box.exec();
  for (size_t i = 0; i < made.size(); ++i) {
    if (box.clickedButton() == made[i]) return buttons[static_cast<qsizetype>(i)];
  }
  return {};
}

}  // namespace

DocumentTab::DocumentTab(std::shared_ptr<document::Document> document, dispatch::MainQueue& mainQueue,
                         jobs::JobRegistry& jobs, QWidget* parent)
    : QWidget(parent),
      doc_(std::move(document)),
      mainQueue_(mainQueue),
      jobs_(jobs),
      view_(new TextView(doc_, this)),
      layout_(new QVBoxLayout(this)),
      stack_(new QStackedWidget(this)),
      find_(new FindBar(doc_, *view_, mainQueue, this)),
      goTo_(new GoToField(doc_, *view_, mainQueue, this)) {
  layout_->setContentsMargins(0, 0, 0, 0);
  layout_->setSpacing(0);
  stack_->addWidget(view_);
  layout_->addWidget(find_);
  createFilter();  // its bar under the find bar
  // The text (or table) with the overview strip beside its scroll bar.
  auto* middle = new QHBoxLayout;
  middle->setSpacing(0);
  middle->addWidget(stack_, 1);
  middle->addWidget(overview_ = new OverviewStrip(this));
  layout_->addLayout(middle, 1);
  layout_->addWidget(goTo_);
  setFocusProxy(view_);
  connect(find_, &FindBar::closed, view_, [this] { view_->setFocus(); });
  connect(goTo_, &GoToField::closed, view_, [this] { view_->setFocus(); });
  connect(filterBar_, &FilterBar::closed, view_, [this] { view_->setFocus(); });
  goTo_->setRecordResolver([this](int64_t record) -> std::expected<int64_t, QString> {
    if (!grid_) return std::unexpected(GoToTexts::noRecordIndex());
    return grid_->recordResolver()(record);
  });
  goTo_->setTimeResolver([this](const logs::TimeInput& input) { return landingForTime(input); });
  connect(view_, &TextView::statusMessage, this, &DocumentTab::statusMessage);
  // Find and Go to place the selection in the text; the table shows the same place.
  connect(view_, &TextView::selectionPlaced, this, [this](qint64 begin, qint64) {
    if (isShowingTable()) grid_->showOffset(begin);
  });
  listenerToken_ = doc_->addChangeListener([this](const document::DocumentChange& change) {
    // A complete index takes edits and appended lines without a progress
    // report: the count comes from the text as it is now.
    if (progress_.isComplete) progress_.lineCount = doc_->snapshot().lines.lineCount();
    logIndexFollow(change);
    filterFollow(change);
    bookmarksFollow(change);
    emit stateChanged();
  });
  doc_->setIndexProgressHandler([this](const storage::LineIndexProgress& progress) {
    progress_ = progress;
    if (logIndexTrailsLines_ && logIndex_) {
      // The lines the line index has just counted are new to the log index.
      logIndex_->noteAppend(logSource());
      logIndexTrailsLines_ = !progress.isComplete;
    }
    filterLinesCounted(progress.isComplete);
    bookmarksLinesCounted(progress.isComplete);
    view_->refreshText();
    emit stateChanged();
  });
  doc_->setStatusHandler([this](const std::string& text) { showStatus(text); });
  doc_->setLiveFileHandler([this](const document::LiveFileNotice& notice) { showLiveNotice(notice); });
  progress_.isComplete = doc_->snapshot().lines.isComplete;
  progress_.lineCount = doc_->snapshot().lines.lineCount();
  if (looksBinary())
    openNotice_ = tr("“%1” looks like a binary file; it is shown as %2 text")
                      .arg(QFileInfo(path()).fileName(), encodingText());
  startLogIndex();
  createBookmarks();
  connectOverviewStrip(overview_, this);
  startCrashRecovery();
}

bool DocumentTab::looksBinary() const {
  if (doc_->isUntitled()) return false;
  const auto text = doc_->snapshot().text;
  std::vector<uint8_t> sample(
      static_cast<size_t>(std::min<int64_t>(text.totalLength(), text::kBinarySniffBytes)));
  const int64_t read = text.copyBytes({0, static_cast<int64_t>(sample.size())}, sample.data());
  sample.resize(static_cast<size_t>(std::max<int64_t>(read, 0)));
  return text::looksBinary(sample);
}

DocumentTab::~DocumentTab() {
  // Closed: saved, or its edits given up when the user was asked. Only a
  // crash leaves a journal behind.
  if (journal_) journal_->closed();
  doc_->setEditRecorder(nullptr);
  closeBookmarks();
  // The panels talk to the view as they go: they go first.
  delete find_;
  delete goTo_;
  delete grid_;
  delete filterBar_;
  if (liveFilter_) liveFilter_->cancel();
  liveFilter_.reset();
  if (logIndex_) logIndex_->cancel();
  logIndex_.reset();
  doc_->setIndexProgressHandler(nullptr);
  doc_->setStatusHandler(nullptr);
  doc_->setLiveFileHandler(nullptr);
  doc_->removeChangeListener(listenerToken_);
  doc_->stopFollowing();
}

bool DocumentTab::isShowingTable() const { return grid_ && stack_->currentWidget() == grid_; }

bool DocumentTab::setTableView(bool on) {
  if (!on) {
    stack_->setCurrentWidget(view_);
    view_->setFocus();
    emit tableViewChanged(false);
    return true;
  }
  if (!grid_) {
    auto delimiter = CsvGridView::detect(*doc_);
    if (!delimiter) {
      emit statusMessage(delimiter.error());
      emit tableViewChanged(false);
      return false;
    }
    grid_ = new CsvGridView(doc_, *delimiter, mainQueue_, jobs_, stack_);
    stack_->addWidget(grid_);
    connect(grid_, &CsvGridView::statusMessage, this,
            [this](const QString& text, bool) { emit statusMessage(text); });
    connect(grid_, &CsvGridView::showingRawText, this, [this](const QString& message) {
      setTableView(false);
      emit statusMessage(message);
    });
  }
  stack_->setCurrentWidget(grid_);
  grid_->setFocus();
  emit tableViewChanged(true);
  return true;
}

QString DocumentTab::title() const {
  QString name = doc_->isUntitled() ? tr("Untitled") : QFileInfo(path()).fileName();
  if (doc_->isFileMissing()) name += tr(" (deleted)");
  return doc_->isModified() ? name + QStringLiteral(" •") : name;
}

QString DocumentTab::path() const { return QString::fromStdString(doc_->path()); }

QString DocumentTab::encodingText() const { return qt(text::displayName(doc_->encoding())); }

QString DocumentTab::lineEndingText() const {
  switch (doc_->lineEnding()) {
    case text::LineEnding::crlf: return QStringLiteral("CRLF");
    case text::LineEnding::cr: return QStringLiteral("CR");
    case text::LineEnding::lf: break;
  }
  return QStringLiteral("LF");
}

QString DocumentTab::sizeText() const {
  // A file in another encoding is shown from a UTF-8 working copy of another
  // size: the size the user knows is the file's own.
  const auto& identity = doc_->fileIdentity();
  const int64_t size = doc_->isTranscoded() && identity ? identity->size : doc_->length();
  return qt(base::formatByteCount(size));
}

QString DocumentTab::indexText() const {
  const QLocale locale;
  if (progress_.isComplete)
    return tr("%1 lines")
        .arg(locale.toString(static_cast<qlonglong>(std::max<int64_t>(1, progress_.lineCount))));
  return tr("Indexing %1% · ~%2 lines")
      .arg(static_cast<int>(progress_.fraction() * 100))
      .arg(locale.toString(static_cast<qlonglong>(progress_.lineCount)));
}

QString DocumentTab::indexToolTip() const {
  if (progress_.tierName.empty()) return {};
  // Tier 1 keeps the line starts in memory; tier 2 in a scratch file on disk.
  const QString where = progress_.tierName.starts_with('1')
                            ? tr("Line starts are kept in memory")
                            : tr("Line starts are kept in a scratch file on disk");
  return tr("%1 (line index tier %2)").arg(where, qt(progress_.tierName));
}

void DocumentTab::showStatus(const std::string& text) {
  if (text == document::kTooLargeToUndoMessage) {
    // Worth more than a passing status text, once per document.
    if (!warnedTooLargeToUndo_) {
      warnedTooLargeToUndo_ = true;
      auto* box =
          new QMessageBox(QMessageBox::Warning, QStringLiteral("Quorin"), qt(text), QMessageBox::Ok, this);
      box->setAttribute(Qt::WA_DeleteOnClose);
      box->open();
    }
  }
  emit statusMessage(qt(text));
}

void DocumentTab::showLiveNotice(const document::LiveFileNotice& notice) {
  using Kind = document::LiveFileNotice::Kind;
  switch (notice.kind) {
    case Kind::externalChange: {
      const QString choice =
          ask(this, QMessageBox::Warning, qt(notice.message), {tr("Reload"), tr("Keep Mine")}, 1);
      doc_->resolveExternalChange(choice == tr("Reload"));
      break;
    }
    case Kind::rotated: {
      const QString choice =
          ask(this, QMessageBox::Question, qt(notice.message), {tr("Switch"), tr("Not Now")}, 0);
      if (choice == tr("Switch")) doc_->switchToRotatedFile();
      break;
    }
    case Kind::lagChanged:
      followText_ = notice.lagBytes == 0
                        ? tr("Following")
                        : tr("Following · %1 behind").arg(qt(base::formatByteCount(notice.lagBytes)));
      canCatchUp_ = notice.canCatchUp;
      break;
    case Kind::readError:
      followText_.clear();
      canCatchUp_ = false;
      break;
    case Kind::caughtUp: canCatchUp_ = false; break;
    default: break;
  }
  emit stateChanged();
}

bool DocumentTab::confirmLossySave() {
  const int64_t replaced = doc_->transcodeSubstitutions();
  if (replaced == 0) return true;
  const QString text =
      tr("%n character(s) of this file could not be read as %1 and are shown as “�”. Saving writes that "
         "replacement character in their place.",
         nullptr, static_cast<int>(std::min<int64_t>(replaced, 1 << 30)))
          .arg(encodingText());
  return ask(this, QMessageBox::Warning, text, {tr("Save Anyway"), tr("Cancel")}, 1) == tr("Save Anyway");
}

void DocumentTab::save() {
  view_->closeTypingGroup();
  if (!confirmLossySave()) return emit saveFinished(false);
  emit statusMessage(tr("Saving…"));
  emit stateChanged();
  doc_->save([self = QPointer(this)](const auto& result) {
    if (self) self->finishSave(result);
  });
}

void DocumentTab::saveAs(const QString& path) {
  view_->closeTypingGroup();
  if (!confirmLossySave()) return emit saveFinished(false);
  emit statusMessage(tr("Saving…"));
  emit stateChanged();
  doc_->saveAs(QFileInfo(path).absoluteFilePath().toStdString(), [self = QPointer(this)](const auto& result) {
    if (self) self->finishSave(result);
  });
}

void DocumentTab::finishSave(const std::expected<persistence::SaveOutcome, persistence::SaveError>& result) {
  if (!result) {
    QMessageBox box(QMessageBox::Warning, QStringLiteral("Quorin"),
                    tr("“%1” could not be saved.").arg(QFileInfo(path()).fileName()), QMessageBox::Ok, this);
    box.setInformativeText(qt(result.error().describe()));
    box.exec();
    emit statusMessage(tr("Not saved"));
    emit stateChanged();
    emit saveFinished(false);
    return;
  }
  const bool inPlace = result->kind == persistence::SaveOutcome::Kind::wrote &&
                       result->strategy == persistence::SaveStrategy::inPlacePatch;
  emit statusMessage(inPlace ? tr("Saved in place") : tr("Saved"));
  emit stateChanged();
  emit saveFinished(true);
}

void DocumentTab::setFollowing(bool follow) {
  if (!follow) {
    doc_->stopFollowing();
    followText_.clear();
    canCatchUp_ = false;
  } else if (auto started = doc_->startFollowing(); !started) {
    emit statusMessage(qt(started.error()));
  } else {
    followText_ = tr("Following");
    view_->scrollToOffset(doc_->length());
  }
  emit stateChanged();
}

void DocumentTab::catchUpToLive() { doc_->catchUpToLive(); }

}  // namespace quorin::app
