#include "app/MainWindow.h"

#include <QApplication>
#include <QCloseEvent>
#include <QEventLoop>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QLocale>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QPointer>
#include <QProgressBar>
#include <QProgressDialog>
#include <QPushButton>
#include <QSettings>
#include <QStatusBar>
#include <QTabBar>
#include <QTabWidget>

#include "app/DocumentTab.h"
#include "app/LargeFileDialog.h"
#include "app/WindowSupport.h"
#include "app/bookmarks/BookmarksPanel.h"
#include "app/bookmarks/NotesPanel.h"
#include "app/compare/CompareWindow.h"
#include "app/find/FindBar.h"
#include "app/goto/GoToField.h"
#include "app/logs/TimelinePanel.h"
#include "app/view/TextView.h"
#include "base/ByteCount.h"
#include "document/Document.h"

namespace quorin::app {
namespace {

constexpr int kStatusMessageMs = 4000;

}  // namespace

MainWindow::MainWindow(dispatch::MainQueue& mainQueue, QWidget* parent)
    : QMainWindow(parent),
      mainQueue_(mainQueue),
      tabs_(new QTabWidget(this)),
      timeline_(new TimelinePanel(this)) {
  setAttribute(Qt::WA_DeleteOnClose);
  setWindowTitle(QStringLiteral("Quorin"));
  setAcceptDrops(true);
  tabs_->setTabsClosable(true);
  tabs_->setMovable(true);
  tabs_->setDocumentMode(true);
  setCentralWidget(tabs_);
  addDockWidget(Qt::BottomDockWidgetArea, timeline_);
  timeline_->hide();  // View ▸ Timeline
  connect(tabs_, &QTabWidget::tabCloseRequested, this, [this](int index) { closeTab(index); });
  connect(tabs_, &QTabWidget::currentChanged, this, &MainWindow::currentTabChanged);
  createMenus();
  createAnnotateMenu();
  createStatusBar();
  updateActions();
  resize(1100, 760);
}

MainWindow::~MainWindow() = default;

void MainWindow::showTransientMessage(const QString& text) {
  statusBar()->showMessage(text, kStatusMessageMs);
}

DocumentTab* MainWindow::currentTab() const { return qobject_cast<DocumentTab*>(tabs_->currentWidget()); }
DocumentTab* MainWindow::tabAt(int index) const { return qobject_cast<DocumentTab*>(tabs_->widget(index)); }
int MainWindow::tabCount() const { return tabs_->count(); }

DocumentTab* MainWindow::findOpenTab(const QString& path, MainWindow** owner) {
  const QString wanted = canonicalPath(path);
  for (MainWindow* window : allWindows()) {
    for (int i = 0; i < window->tabs_->count(); ++i) {
      DocumentTab* tab = window->tabAt(i);
      if (tab && !tab->path().isEmpty() && canonicalPath(tab->path()) == wanted) {
        if (owner) *owner = window;
        return tab;
      }
    }
  }
  return nullptr;
}

std::optional<QString> MainWindow::openFile(const QString& path) {
  MainWindow* owner = nullptr;
  if (DocumentTab* tab = findOpenTab(path, &owner)) {
    owner->tabs_->setCurrentWidget(tab);
    owner->raise();
    owner->activateWindow();
    return std::nullopt;
  }
  const QFileInfo info(path);
  storage::LargeFileOpenRequest mode;
  const int64_t threshold = fastOpenThreshold();
  if (info.isFile() && info.size() > threshold) {
    LargeFileController dialog(info.fileName(), info.size(), threshold, this);
    if (dialog.exec() != QDialog::Accepted || !dialog.request()) return std::nullopt;
    mode = *dialog.request();
  }
  return openFileWithMode(path, mode);
}

std::optional<QString> MainWindow::openFileWithMode(const QString& path,
                                                    const storage::LargeFileOpenRequest& mode) {
  document::OpenOptions options;
  options.mainQueue = &mainQueue_;
  options.mode = mode;
  // Files in another encoding are converted to a UTF-8 working copy first, which takes time in
  // proportion to their size: show it, and let it be cancelled.
  QProgressDialog progress(tr("Converting “%1” to UTF-8…").arg(QFileInfo(path).fileName()), tr("Cancel"), 0,
                           1000, this);
  progress.setWindowModality(Qt::WindowModal);
  progress.setMinimumDuration(400);
  progress.setValue(0);
  options.transcodeProgress = [&progress](int64_t done, int64_t total) {
    progress.setValue(total > 0 ? static_cast<int>(done * 1000 / total) : 0);
    QCoreApplication::processEvents();
  };
  options.transcodeCancelled = [&progress] { return progress.wasCanceled(); };
  // File names are bytes on Linux; encodeName keeps names that are not UTF-8 openable.
  auto document = document::Document::open(QFile::encodeName(path).toStdString(), std::move(options));
  progress.reset();
  if (!document) return QString::fromStdString(document.error().describe());
  addTab(new DocumentTab(std::move(*document), mainQueue_, applicationJobs(), tabs_));
  noteRecent(canonicalPath(path));
  return std::nullopt;
}

void MainWindow::openFileReportingErrors(const QString& path) {
  if (const auto error = openFile(path)) {
    QMessageBox box(QMessageBox::Warning, QStringLiteral("Quorin"),
                    tr("“%1” could not be opened.").arg(QFileInfo(path).fileName()), QMessageBox::Ok, this);
    box.setInformativeText(*error);
    box.exec();
  }
}

void MainWindow::newDocument() {
  document::OpenOptions options;
  options.mainQueue = &mainQueue_;
  addTab(new DocumentTab(document::Document::untitled(std::move(options)), mainQueue_, applicationJobs(),
                         tabs_));
}

void MainWindow::chooseAndOpenFile() {
  const DocumentTab* tab = currentTab();
  const QString start = tab && !tab->path().isEmpty() ? QFileInfo(tab->path()).absolutePath() : QString();
  for (const QString& path : QFileDialog::getOpenFileNames(this, tr("Open File"), start)) {
    openFileReportingErrors(path);
  }
}

void MainWindow::addTab(DocumentTab* tab) {
  tab->document().setInPlaceSaveEnabled(inPlaceSavePreference());
  applyMarkers(tab);
  const int index = tabs_->addTab(tab, tab->title());
  tabs_->setTabToolTip(index, tab->path());
  connect(tab, &DocumentTab::statusMessage, this, [this, tab](const QString& text) {
    if (tab == currentTab()) showTransientMessage(text);
  });
  connect(tab, &DocumentTab::stateChanged, this, [this, tab] {
    const int at = tabs_->indexOf(tab);
    if (at >= 0) {
      tabs_->setTabText(at, tab->title());
      tabs_->setTabToolTip(at, tab->path());
    }
    if (tab == currentTab()) updateStatus();
  });
  connect(tab->view(), &TextView::caretMoved, this, [this, tab] {
    if (tab == currentTab()) updateStatus();
  });
  connect(tab, &DocumentTab::logDataChanged, this, [this, tab] {
    if (tab == currentTab()) updateStatus();
  });
  connect(tab, &DocumentTab::filterChanged, this, [this, tab] {
    if (tab == currentTab()) updateStatus();
  });
  connect(tab, &DocumentTab::bookmarksChanged, this, [this, tab] {
    if (tab == currentTab()) updateStatus();
  });
  connect(tab, &DocumentTab::tableViewChanged, this, [this, tab] {
    if (tab == currentTab()) updateActions();
  });
  connect(tab->view(), &TextView::undoStateChanged, this, [this, tab] {
    if (tab == currentTab()) updateActions();
  });
  tabs_->setCurrentIndex(index);
  tab->setFocus();
  if (!tab->openNotice().isEmpty()) showTransientMessage(tab->openNotice());
}

void MainWindow::currentTabChanged() {
  DocumentTab* tab = currentTab();
  setWindowTitle(tab ? tr("%1 — Quorin").arg(tab->title()) : QStringLiteral("Quorin"));
  timeline_->showTab(tab);
  notes_->showTab(tab);
  bookmarksPanel_->showTab(tab);
  updateStatus();
  updateActions();
}

void MainWindow::updateStatus() {
  DocumentTab* tab = currentTab();
  for (QLabel* label : {positionLabel_, selectionLabel_, timeLabel_, bookmarkLabel_, indexLabel_,
                        filterLabel_, followLabel_, sizeLabel_, encodingLabel_, lineEndingLabel_}) {
    label->setVisible(tab != nullptr);
  }
  savingBar_->setVisible(tab && tab->isSaving());
  if (!tab) return;
  setWindowTitle(tr("%1 — Quorin").arg(tab->title()));
  const QLocale locale;
  const auto position = tab->view()->caretPosition();
  positionLabel_->setText(position.line
                              ? tr("Ln %1, Col %2")
                                    .arg(locale.toString(static_cast<qlonglong>(*position.line)),
                                         locale.toString(static_cast<qlonglong>(position.column)))
                              : tr("Col %1").arg(locale.toString(static_cast<qlonglong>(position.column))));
  const QString time = tab->caretTimeText();
  timeLabel_->setVisible(!time.isEmpty());
  timeLabel_->setText(time);
  const QString sinceBookmark = tab->bookmarkTimeText();
  bookmarkLabel_->setVisible(!sinceBookmark.isEmpty());
  bookmarkLabel_->setText(sinceBookmark);
  const int64_t selected = tab->view()->selectionLength();
  selectionLabel_->setVisible(selected > 0);
  selectionLabel_->setText(tr("%1 selected").arg(QString::fromStdString(base::formatByteCount(selected))));
  const QString filtered = tab->filterStatusText();
  filterLabel_->setVisible(!filtered.isEmpty());
  filterLabel_->setText(filtered);
  filterLabel_->setToolTip(tab->filterNotice());
  showAllLinesAction_->setChecked(!tab->isFilterEnabled());
  indexLabel_->setText(tab->indexText());
  indexLabel_->setToolTip(tab->indexToolTip());
  followLabel_->setVisible(!tab->followText().isEmpty());
  followLabel_->setText(tab->followText());
  sizeLabel_->setText(tab->sizeText());
  encodingLabel_->setText(tab->encodingText());
  encodingLabel_->setToolTip(tab->openNotice());
  lineEndingLabel_->setText(tab->lineEndingText());
  followAction_->setChecked(tab->isFollowing());
  catchUpAction_->setEnabled(tab->isFollowing() && tab->canCatchUp());
}

void MainWindow::updateActions() {
  DocumentTab* tab = currentTab();
  const bool has = tab != nullptr;
  saveAction_->setEnabled(has);
  saveAsAction_->setEnabled(has);
  followAction_->setEnabled(has && !tab->document().isUntitled());
  undoAction_->setEnabled(has && tab->document().canUndo());
  redoAction_->setEnabled(has && tab->document().canRedo());
  undoAction_->setText(has ? tab->view()->undoActionText() : tr("Undo"));
  redoAction_->setText(has ? tab->view()->redoActionText() : tr("Redo"));
  catchUpAction_->setEnabled(has && tab->isFollowing() && tab->canCatchUp());
  tableAction_->setEnabled(has);
  showAllLinesAction_->setEnabled(has);
  tableAction_->setChecked(has && tab->isShowingTable());
}

void MainWindow::compareCurrent() {
  DocumentTab* tab = currentTab();
  if (!tab) return;
  auto* window = new CompareWindow(tab->sharedDocument(), tab->title(), mainQueue_, this);
  std::vector<CompareCandidate> candidates;
  for (MainWindow* other : allWindows()) {
    for (int i = 0; i < other->tabs_->count(); ++i) {
      DocumentTab* candidate = other->tabAt(i);
      if (candidate && candidate != tab)
        candidates.push_back({candidate->title(), candidate->sharedDocument()});
    }
  }
  window->setOpenDocuments(std::move(candidates));
  window->show();
}

bool MainWindow::saveCurrent(bool askForName) {
  DocumentTab* tab = currentTab();
  if (!tab) return false;
  bool saved = false;
  QEventLoop wait;
  const auto connection = connect(tab, &DocumentTab::saveFinished, &wait, [&](bool ok) {
    saved = ok;
    wait.quit();
  });
  // The wait runs the event loop, where the tab may be closed: its save's
  // answer then never comes, so its end ends the wait too.
  const QPointer<DocumentTab> alive(tab);
  connect(tab, &QObject::destroyed, &wait, &QEventLoop::quit);
  if (askForName || tab->document().isUntitled()) {
    const QString path = QFileDialog::getSaveFileName(this, tr("Save As"), tab->path());
    if (path.isEmpty()) {
      disconnect(connection);
      return false;
    }
    tab->saveAs(path);
  } else {
    tab->save();
  }
  // The save runs off this thread; events keep flowing meanwhile, so the window repaints.
  if (tab->isSaving()) wait.exec();
  if (!alive) return false;
  disconnect(connection);
  if (saved) noteRecent(canonicalPath(tab->path()));
  return saved;
}

bool MainWindow::closeTab(int index) {
  DocumentTab* tab = tabAt(index);
  if (!tab) return true;
  if (tab->document().isModified()) {
    tabs_->setCurrentIndex(index);
    QMessageBox box(QMessageBox::Warning, QStringLiteral("Quorin"),
                    tr("Do you want to save the changes you made to “%1”?")
                        .arg(tab->title().remove(QStringLiteral(" •"))),
                    QMessageBox::Save | QMessageBox::Discard | QMessageBox::Cancel, this);
    box.setInformativeText(tr("Your changes will be lost if you don't save them."));
    box.setDefaultButton(QMessageBox::Save);
    const int choice = box.exec();
    if (choice == QMessageBox::Cancel) return false;
    if (choice == QMessageBox::Save && !saveCurrent(false)) return false;
  }
  tabs_->removeTab(tabs_->indexOf(tab));
  delete tab;
  return true;
}

void MainWindow::closeEvent(QCloseEvent* event) {
  saveSession();
  while (tabs_->count() > 0) {
    if (!closeTab(tabs_->count() - 1)) {
      event->ignore();
      return;
    }
  }
  event->accept();
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
  if (event->mimeData()->hasUrls()) event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event) {
  for (const QUrl& url : event->mimeData()->urls()) {
    if (url.isLocalFile()) openFileReportingErrors(url.toLocalFile());
  }
  event->acceptProposedAction();
}

}  // namespace quorin::app
