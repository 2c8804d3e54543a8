#include "app/compare/CompareWindow.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMessageBox>
#include <QPalette>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QTableView>
#include <QVBoxLayout>

#include "app/compare/CompareTexts.h"
#include "compare/CompareReport.h"

namespace quorin::app {
namespace {

QString q(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

}  // namespace

CompareWindow::CompareWindow(std::shared_ptr<document::Document> current, QString currentName,
                             dispatch::MainQueue& mainQueue, QWidget* parent)
    : QWidget(parent, Qt::Window),
      left_(std::move(current)),
      leftName_(std::move(currentName)),
      mainQueue_(mainQueue) {
  setAttribute(Qt::WA_DeleteOnClose);
  setWindowTitle(CompareTexts::title(leftName_));

  with_ = new QComboBox(this);
  with_->addItem(CompareTexts::otherFileItem());
  with_->setCurrentIndex(-1);
  with_->setPlaceholderText(tr("Choose a document or file"));
  ignoreWhitespace_ = new QCheckBox(tr("Ignore whitespace"), this);
  ignoreCase_ = new QCheckBox(tr("Ignore case"), this);
  previous_ = new QPushButton(tr("Previous Change"), this);
  previous_->setShortcut(QKeySequence(Qt::ALT | Qt::Key_Up));
  previous_->setToolTip(tr("Previous change (Alt+Up)"));
  next_ = new QPushButton(tr("Next Change"), this);
  next_->setShortcut(QKeySequence(Qt::ALT | Qt::Key_Down));
  next_->setToolTip(tr("Next change (Alt+Down)"));
  again_ = new QPushButton(tr("Compare Again"), this);
  again_->setShortcut(QKeySequence(Qt::Key_F5));
  save_ = new QPushButton(tr("Save Report…"), this);
  progress_ = new QProgressBar(this);
  progress_->setRange(0, 1000);
  progress_->setMaximumWidth(240);
  cancel_ = new QPushButton(tr("Cancel"), this);

  auto* bar = new QHBoxLayout;
  bar->addWidget(new QLabel(tr("Compare with:"), this));
  bar->addWidget(with_, 1);
  bar->addWidget(ignoreWhitespace_);
  bar->addWidget(ignoreCase_);
  // The buttons in a row of their own, so the window fits a small screen.
  auto* buttons = new QHBoxLayout;
  buttons->addWidget(previous_);
  buttons->addWidget(next_);
  buttons->addStretch(1);
  buttons->addWidget(again_);
  buttons->addWidget(save_);

  summary_ = new QLabel(this);
  summary_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  noticesLabel_ = new QLabel(this);
  noticesLabel_->setWordWrap(true);
  noticesLabel_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  // Many notices scroll inside a few lines rather than push the window off a small screen.
  noticesArea_ = new QScrollArea(this);
  noticesArea_->setWidget(noticesLabel_);
  noticesArea_->setWidgetResizable(true);
  noticesArea_->setFrameShape(QFrame::NoFrame);
  noticesArea_->setMaximumHeight(noticesLabel_->fontMetrics().lineSpacing() * 5 + 8);
  noticesArea_->hide();
  auto* status = new QHBoxLayout;
  status->addWidget(summary_, 1);
  status->addWidget(progress_);
  status->addWidget(cancel_);

  rows_ = new CompareRowModel(this);
  table_ = new QTableView(this);
  table_->setModel(rows_);
  table_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
  table_->setWordWrap(false);
  table_->setShowGrid(false);
  table_->setEditTriggers(QAbstractItemView::NoEditTriggers);
  table_->setSelectionBehavior(QAbstractItemView::SelectRows);
  // A see-through selection, so that a selected change keeps its tint.
  QPalette palette = table_->palette();
  QColor highlight = palette.color(QPalette::Highlight);
  highlight.setAlpha(70);
  palette.setColor(QPalette::Highlight, highlight);
  palette.setColor(QPalette::HighlightedText, palette.color(QPalette::Text));
  table_->setPalette(palette);
  table_->verticalHeader()->hide();
  // Uniform rows: the view never measures rows it does not show.
  table_->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
  table_->verticalHeader()->setDefaultSectionSize(table_->fontMetrics().height() + 4);
  auto* columns = table_->horizontalHeader();
  columns->setSectionResizeMode(CompareRowModel::leftNumber, QHeaderView::Fixed);
  columns->setSectionResizeMode(CompareRowModel::rightNumber, QHeaderView::Fixed);
  columns->setSectionResizeMode(CompareRowModel::leftText, QHeaderView::Stretch);
  columns->setSectionResizeMode(CompareRowModel::rightText, QHeaderView::Stretch);

  auto* layout = new QVBoxLayout(this);
  layout->addLayout(bar);
  layout->addLayout(buttons);
  layout->addWidget(noticesArea_);
  layout->addWidget(table_, 1);
  layout->addLayout(status);

  connect(with_, &QComboBox::activated, this, [this](int item) {
    if (item == with_->count() - 1) {
      chooseOtherFile();
      return;
    }
    const auto& candidate = candidates_[static_cast<size_t>(item)];
    if (auto document = candidate.document.lock()) {
      compareWithDocument(std::move(document), candidate.name);
    } else {
      fail(CompareTexts::noLongerOpen(candidate.name));
    }
  });
  connect(ignoreWhitespace_, &QCheckBox::toggled, this, &CompareWindow::setIgnoreWhitespace);
  connect(ignoreCase_, &QCheckBox::toggled, this, &CompareWindow::setIgnoreCase);
  connect(previous_, &QPushButton::clicked, this, &CompareWindow::goToPreviousChange);
  connect(next_, &QPushButton::clicked, this, &CompareWindow::goToNextChange);
  connect(again_, &QPushButton::clicked, this, &CompareWindow::compareAgain);
  connect(save_, &QPushButton::clicked, this, &CompareWindow::saveReportInteractively);
  connect(cancel_, &QPushButton::clicked, this, &CompareWindow::cancel);
  connect(table_->selectionModel(), &QItemSelectionModel::currentRowChanged, this,
          [this] { updateSummary(); });
  watch(left_, leftListener_);
  updateControls();
  // Roomy, but never taller or wider than the screen it opens on.
  const QScreen* screen = parent ? parent->screen() : QGuiApplication::primaryScreen();
  const QRect available = screen ? screen->availableGeometry() : QRect(0, 0, 1100, 700);
  resize(std::min(1100, available.width() * 9 / 10), std::min(700, available.height() * 8 / 10));
}

CompareWindow::~CompareWindow() {
  if (job_) job_->cancel();
  if (left_) left_->removeChangeListener(leftListener_);
  if (right_) {
    right_->removeChangeListener(rightListener_);
    if (rightOpenedHere_) right_->setIndexProgressHandler(nullptr);
  }
}

void CompareWindow::watch(const std::shared_ptr<document::Document>& document, int& token) {
  token = document->addChangeListener([this](const document::DocumentChange&) {
    if (outcome_ && !stale_) {
      stale_ = true;
      updateSummary();
    }
  });
}

void CompareWindow::setOpenDocuments(std::vector<CompareCandidate> candidates) {
  candidates_ = std::move(candidates);
  with_->clear();
  for (const auto& candidate : candidates_) with_->addItem(candidate.name);
  with_->addItem(CompareTexts::otherFileItem());
  with_->setCurrentIndex(-1);
}

void CompareWindow::compareWithDocument(std::shared_ptr<document::Document> other, QString name) {
  setRight(std::move(other), std::move(name), false);
  start();
}

void CompareWindow::setRight(std::shared_ptr<document::Document> other, QString name, bool openedHere) {
  if (right_) {
    right_->removeChangeListener(rightListener_);
    if (rightOpenedHere_) right_->setIndexProgressHandler(nullptr);
  }
  right_ = std::move(other);
  rightName_ = std::move(name);
  rightOpenedHere_ = openedHere;
  watch(right_, rightListener_);
  setWindowTitle(CompareTexts::title(leftName_, rightName_));
}

void CompareWindow::compareWithFile(const QString& path) {
  document::OpenOptions options;
  options.mainQueue = &mainQueue_;
  options.watchFile = false;
  const QString name = QFileInfo(path).fileName();
  auto opened = document::Document::open(path.toStdString(), options);
  if (!opened) {
    fail(q(compare::CompareError::title()) + QStringLiteral("\n") +
         q(compare::CompareError{name.toStdString(), opened.error().describe()}.describe()) +
         QStringLiteral("\n") + q(opened.error().describe()));
    return;
  }
  setRight(std::move(*opened), name, true);
  start();
}

void CompareWindow::chooseOtherFile() {
  const QString path = QFileDialog::getOpenFileName(this, tr("Compare With File"));
  if (!path.isEmpty()) compareWithFile(path);
  with_->setCurrentIndex(-1);
}

void CompareWindow::compareAgain() {
  if (right_) start();
}

void CompareWindow::setIgnoreWhitespace(bool on) {
  if (ignoreWhitespace_->isChecked() != on) ignoreWhitespace_->setChecked(on);
  if (options_.ignoreWhitespace == on) return;
  options_.ignoreWhitespace = on;
  compareAgain();
}

void CompareWindow::setIgnoreCase(bool on) {
  if (ignoreCase_->isChecked() != on) ignoreCase_->setChecked(on);
  if (options_.ignoreCase == on) return;
  options_.ignoreCase = on;
  compareAgain();
}

void CompareWindow::start() {
  if (job_) job_->cancel();
  job_.reset();
  ++generation_;
  error_.clear();
  waitingForIndex_ = false;
  // A file opened here has no tab to show its indexing: wait for it, so the
  // comparison covers all of it. The current document's own index may still
  // be building; the comparison then says what it covered.
  if (rightOpenedHere_ && !right_->snapshot().lines.isComplete) {
    startWhenIndexed();
    return;
  }
  auto request = std::make_shared<compare::CompareRequest>(compare::CompareRequest{
      .left = compare::CompareSide::of(left_->describedSnapshot(), leftName_.toStdString()),
      .right = compare::CompareSide::of(right_->describedSnapshot(), rightName_.toStdString()),
      .options = options_,
  });
  const uint64_t generation = generation_;
  QPointer<CompareWindow> self(this);
  progress_->setValue(0);
  progress_->setFormat(CompareTexts::comparingProgress());
  job_ = compare::CompareJob::start(
      *request, mainQueue_,
      [self, generation](const compare::CompareProgress& progress) {
        if (self && self->generation_ == generation)
          self->progress_->setValue(static_cast<int>(progress.fraction() * 1000));
      },
      [self, generation,
       request](const std::expected<compare::CompareOutcome, compare::CompareError>& result) {
        if (self) self->finish(generation, result, request);
      });
  updateControls();
  updateSummary();
}

void CompareWindow::startWhenIndexed() {
  waitingForIndex_ = true;
  progress_->setValue(0);
  progress_->setFormat(CompareTexts::readingProgress(rightName_));
  const uint64_t generation = generation_;
  QPointer<CompareWindow> self(this);
  // The handler must not replace itself while it runs (that destroys the
  // closure under its own feet, `self` included): the start is posted, and
  // the handler is dropped there.
  auto posted = std::make_shared<bool>(false);
  right_->setIndexProgressHandler([self, generation, posted](const storage::LineIndexProgress& progress) {
    if (!self || self->generation_ != generation || !self->waitingForIndex_ || *posted) return;
    if (progress.bytesTotal > 0)
      self->progress_->setValue(static_cast<int>(1000.0 * static_cast<double>(progress.bytesScanned) /
                                                 static_cast<double>(progress.bytesTotal)));
    if (progress.isComplete) {
      *posted = true;
      self->mainQueue_.post([self, generation] {
        if (self && self->generation_ == generation) self->startIndexed();
      });
    }
  });
  updateControls();
  updateSummary();
}

void CompareWindow::startIndexed() {
  right_->setIndexProgressHandler(nullptr);
  waitingForIndex_ = false;
  rightOpenedHere_ = false;  // indexed now; a later run need not wait
  start();
  rightOpenedHere_ = true;
}

void CompareWindow::cancel() {
  if (waitingForIndex_) {
    waitingForIndex_ = false;
    ++generation_;
    right_->setIndexProgressHandler(nullptr);
    summary_->setText(CompareTexts::cancelled());
    updateControls();
    emit finished();
    return;
  }
  if (job_) job_->cancel();
}

void CompareWindow::finish(uint64_t generation,
                           const std::expected<compare::CompareOutcome, compare::CompareError>& result,
                           std::shared_ptr<compare::CompareRequest> request) {
  if (generation != generation_) return;
  job_.reset();
  if (!result) {
    fail(q(compare::CompareError::title()) + QStringLiteral("\n") + q(result.error().describe()));
    return;
  }
  if (result->cancelled) {
    updateControls();
    summary_->setText(CompareTexts::cancelled());
    emit finished();
    return;
  }
  outcome_ = *result;
  request_ = std::move(request);
  stale_ = false;
  auto display = std::make_shared<CompareDisplay>(CompareDisplay{
      request_->left, request_->right,
      compare::alignDiff(outcome_->leftLineCount, outcome_->rightLineCount, outcome_->diff.changes)});
  rows_->setDisplay(std::move(display));
  const int digits = static_cast<int>(
      QString::number(std::max(outcome_->leftLineCount, outcome_->rightLineCount) + 1).size());
  const int numberWidth = table_->fontMetrics().horizontalAdvance(QString(digits, QLatin1Char('8'))) + 14;
  table_->horizontalHeader()->resizeSection(CompareRowModel::leftNumber, numberWidth);
  table_->horizontalHeader()->resizeSection(CompareRowModel::rightNumber, numberWidth);
  notices_.clear();
  for (const auto& notice : outcome_->notices) notices_.push_back(q(notice));
  QStringList shown;
  for (const auto& notice : notices_) shown.push_back(QStringLiteral("• ") + notice.toHtmlEscaped());
  noticesLabel_->setText(shown.join(QStringLiteral("<br>")));
  noticesArea_->setVisible(!shown.isEmpty());
  updateControls();
  if (auto first = rows_->nextChange(-1)) showRow(*first);
  updateSummary();
  emit finished();
}

void CompareWindow::fail(const QString& message) {
  error_ = message;
  job_.reset();
  waitingForIndex_ = false;
  updateControls();
  updateSummary();
  const auto lines = message.split(QLatin1Char('\n'));
  auto* alert = new QMessageBox(QMessageBox::Warning, lines.front(), lines.front(), QMessageBox::Ok, this);
  alert->setInformativeText(lines.mid(1).join(QLatin1Char('\n')));
  alert->setAttribute(Qt::WA_DeleteOnClose);
  alert->open();
  emit finished();
}

QString CompareWindow::errorText() const { return error_; }

bool CompareWindow::goToNextChange() {
  const auto row = rows_->nextChange(table_->currentIndex().isValid() ? table_->currentIndex().row() : -1);
  if (!row) return false;
  showRow(*row);
  return true;
}

bool CompareWindow::goToPreviousChange() {
  const int current = table_->currentIndex().isValid() ? table_->currentIndex().row() : rows_->rowCount();
  const auto row = rows_->previousChange(current);
  if (!row) return false;
  showRow(*row);
  return true;
}

void CompareWindow::showRow(int row) {
  const QModelIndex cell = rows_->index(row, CompareRowModel::leftText);
  table_->setCurrentIndex(cell);
  table_->scrollTo(cell, QAbstractItemView::PositionAtCenter);
  updateSummary();
}

QString CompareWindow::summaryText() const { return summary_->text(); }

void CompareWindow::updateSummary() {
  if (isRunning()) {
    summary_->setText(waitingForIndex_ ? CompareTexts::waitingFor(rightName_) : CompareTexts::comparing());
    return;
  }
  if (!error_.isEmpty()) {
    summary_->setText(error_.split(QLatin1Char('\n')).join(QStringLiteral(": ")));
    return;
  }
  if (!outcome_) {
    summary_->setText(CompareTexts::chooseSomething());
    return;
  }
  QString text = q(compare::summaryText(*outcome_));
  if (const QModelIndex current = table_->currentIndex(); current.isValid()) {
    if (auto block = rows_->blockAt(current.row()))
      text += CompareTexts::changeOf(*block + 1, rows_->blockCount());
  }
  if (stale_) text += CompareTexts::staleSuffix();
  summary_->setText(text);
}

void CompareWindow::updateControls() {
  const bool running = isRunning();
  progress_->setVisible(running);
  cancel_->setVisible(running);
  const bool haveResult = outcome_.has_value() && !running;
  previous_->setEnabled(haveResult && rows_->blockCount() > 0);
  next_->setEnabled(haveResult && rows_->blockCount() > 0);
  save_->setEnabled(haveResult);
  again_->setEnabled(right_ != nullptr && !running);
}

std::expected<void, QString> CompareWindow::saveReportTo(const QString& path) const {
  if (!request_ || !outcome_) return std::unexpected(CompareTexts::nothingToReport());
  const std::string text = compare::buildReport(*request_, *outcome_);
  auto saved = compare::saveReport(path.toStdString(), text);
  if (!saved)
    return std::unexpected(q(compare::ReportSaveError::title()) + QStringLiteral("\n") +
                           q(saved.error().describe()));
  return {};
}

void CompareWindow::saveReportInteractively() {
  QString directory;
  if (left_ && !left_->isUntitled())
    directory = QFileInfo(QString::fromStdString(left_->path())).absolutePath();
  const QString suggested =
      (directory.isEmpty() ? QString() : directory + QLatin1Char('/')) + q(compare::kDefaultReportFileName);
  const QString path = QFileDialog::getSaveFileName(this, tr("Save Report"), suggested,
                                                    tr("Text files (*.txt);;All files (*)"));
  if (path.isEmpty()) return;
  if (auto saved = saveReportTo(path); !saved) {
    const auto lines = saved.error().split(QLatin1Char('\n'));
    QMessageBox::warning(this, lines.front(), lines.mid(1).join(QLatin1Char('\n')));
  }
}

}  // namespace quorin::app
