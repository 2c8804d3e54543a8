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
#include <QProgressBar>
#include <QProgressDialog>
#include <QPushButton>
#include <QSettings>
#include <QStatusBar>
#include <QTabBar>
#include <QTabWidget>

#include "app/DocumentTab.h"
#include "app/LargeFileDialog.h"
#include "app/compare/CompareWindow.h"
#include "app/find/FindBar.h"
#include "app/goto/GoToField.h"
#include "app/view/TextView.h"
#include "base/ByteCount.h"
#include "document/Document.h"

namespace quorin::app {
namespace {

constexpr int kMaxRecentFiles = 12;
constexpr int kStatusMessageMs = 4000;

QLabel* addStatusLabel(QStatusBar* bar) {
  auto* label = new QLabel(bar);
  label->setContentsMargins(6, 0, 6, 0);
  bar->addPermanentWidget(label);
  return label;
}

QString canonical(const QString& path) {
  const QFileInfo info(path);
  const QString resolved = info.canonicalFilePath();
  return resolved.isEmpty() ? info.absoluteFilePath() : resolved;
}

int64_t fastOpenThreshold() {
  const QSettings settings;
  return settings
      .value(QString::fromUtf8(storage::kFastOpenThresholdKey.data(),
                               static_cast<qsizetype>(storage::kFastOpenThresholdKey.size())),
             QVariant::fromValue<qlonglong>(storage::kDefaultFastOpenThresholdBytes))
      .toLongLong();
}

// Long jobs of every window (CSV index builds), listed for cancellation.
jobs::JobRegistry& applicationJobs() {
  static jobs::JobRegistry registry;
  return registry;
}

QList<MainWindow*> allWindows() {
  QList<MainWindow*> windows;
  for (QWidget* widget : QApplication::topLevelWidgets()) {
    if (auto* window = qobject_cast<MainWindow*>(widget)) windows.append(window);
  }
  return windows;
}

}  // namespace

MainWindow::MainWindow(dispatch::MainQueue& mainQueue, QWidget* parent)
    : QMainWindow(parent), mainQueue_(mainQueue), tabs_(new QTabWidget(this)) {
  setAttribute(Qt::WA_DeleteOnClose);
  setWindowTitle(QStringLiteral("Quorin"));
  setAcceptDrops(true);
  tabs_->setTabsClosable(true);
  tabs_->setMovable(true);
  tabs_->setDocumentMode(true);
  setCentralWidget(tabs_);
  connect(tabs_, &QTabWidget::tabCloseRequested, this, [this](int index) { closeTab(index); });
  connect(tabs_, &QTabWidget::currentChanged, this, &MainWindow::currentTabChanged);
  createMenus();
  createStatusBar();
  updateActions();
  resize(1100, 760);
}

MainWindow::~MainWindow() = default;

void MainWindow::createMenus() {
  QMenu* file = menuBar()->addMenu(tr("&File"));
  file->addAction(tr("&New"), QKeySequence::New, this, &MainWindow::newDocument);
  file->addAction(tr("New &Window"), QKeySequence(tr("Ctrl+Shift+N")), this, [this] {
    auto* window = new MainWindow(mainQueue_);
    window->show();
  });
  file->addAction(tr("&Open…"), QKeySequence::Open, this, &MainWindow::chooseAndOpenFile);
  recentMenu_ = file->addMenu(tr("Open &Recent"));
  connect(recentMenu_, &QMenu::aboutToShow, this, &MainWindow::updateRecentMenu);
  file->addSeparator();
  saveAction_ = file->addAction(tr("&Save"), QKeySequence::Save, this, [this] { saveCurrent(false); });
  saveAsAction_ = file->addAction(tr("Save &As…"), QKeySequence::SaveAs, this, [this] { saveCurrent(true); });
  file->addSeparator();
  file->addAction(tr("&Close Tab"), QKeySequence::Close, this, [this] {
    if (tabs_->count() > 0) closeTab(tabs_->currentIndex());
  });
  QAction* quit = file->addAction(tr("&Quit"), QKeySequence::Quit, qApp, &QApplication::closeAllWindows);
  quit->setMenuRole(QAction::QuitRole);

  QMenu* edit = menuBar()->addMenu(tr("&Edit"));
  auto viewAction = [this](void (TextView::*method)()) {
    return [this, method] {
      if (DocumentTab* tab = currentTab()) (tab->view()->*method)();
    };
  };
  undoAction_ = edit->addAction(tr("&Undo"), QKeySequence::Undo, this, viewAction(&TextView::undo));
  redoAction_ = edit->addAction(tr("&Redo"), QKeySequence::Redo, this, viewAction(&TextView::redo));
  edit->addSeparator();
  edit->addAction(tr("Cu&t"), QKeySequence::Cut, this, viewAction(&TextView::cut));
  edit->addAction(tr("&Copy"), QKeySequence::Copy, this, viewAction(&TextView::copy));
  edit->addAction(tr("&Paste"), QKeySequence::Paste, this, viewAction(&TextView::paste));
  edit->addAction(tr("Select &All"), QKeySequence::SelectAll, this, viewAction(&TextView::selectAll));

  edit->addSeparator();
  auto tabAction = [this](auto method) {
    return [this, method] {
      if (DocumentTab* tab = currentTab()) method(tab);
    };
  };
  edit->addAction(tr("&Find…"), QKeySequence::Find, this,
                  tabAction([](DocumentTab* t) { t->findBar()->activate(); }));
  edit->addAction(tr("&Replace…"), QKeySequence(tr("Ctrl+H")), this,
                  tabAction([](DocumentTab* t) { t->findBar()->activateReplace(); }));
  edit->addAction(tr("Find &Next"), QKeySequence::FindNext, this,
                  tabAction([](DocumentTab* t) { t->findBar()->findNext(); }));
  edit->addAction(tr("Find Pre&vious"), QKeySequence::FindPrevious, this,
                  tabAction([](DocumentTab* t) { t->findBar()->findPrevious(); }));
  edit->addAction(tr("&Go To…"), QKeySequence(tr("Ctrl+L")), this,
                  tabAction([](DocumentTab* t) { t->goToField()->activate(); }));

  QMenu* view = menuBar()->addMenu(tr("&View"));
  tableAction_ = view->addAction(tr("&Table View"));
  tableAction_->setCheckable(true);
  tableAction_->setShortcut(QKeySequence(tr("Ctrl+T")));
  connect(tableAction_, &QAction::triggered, this, [this](bool on) {
    if (DocumentTab* tab = currentTab()) tab->setTableView(on);
    updateActions();
  });
  view->addSeparator();
  followAction_ = view->addAction(tr("&Follow"));
  followAction_->setCheckable(true);
  followAction_->setShortcut(QKeySequence(tr("Ctrl+Shift+F")));
  followAction_->setToolTip(tr("Follow the file as another program appends to it"));
  connect(followAction_, &QAction::triggered, this, [this](bool on) {
    if (DocumentTab* tab = currentTab()) tab->setFollowing(on);
  });
  catchUpAction_ = view->addAction(tr("Catch Up to Live"), this, [this] {
    if (DocumentTab* tab = currentTab()) tab->catchUpToLive();
  });

  QMenu* tools = menuBar()->addMenu(tr("&Tools"));
  tools->addAction(tr("&Compare With…"), QKeySequence(tr("Ctrl+Shift+D")), this, &MainWindow::compareCurrent);
}

void MainWindow::createStatusBar() {
  QStatusBar* bar = statusBar();
  positionLabel_ = addStatusLabel(bar);
  selectionLabel_ = addStatusLabel(bar);
  followLabel_ = addStatusLabel(bar);
  indexLabel_ = addStatusLabel(bar);
  sizeLabel_ = addStatusLabel(bar);
  encodingLabel_ = addStatusLabel(bar);
  lineEndingLabel_ = addStatusLabel(bar);
  // A rewrite of a big file takes a while: a busy bar while any save runs.
  savingBar_ = new QProgressBar(bar);
  savingBar_->setRange(0, 0);
  savingBar_->setMaximumWidth(120);
  savingBar_->setMaximumHeight(fontMetrics().height());
  savingBar_->setVisible(false);
  bar->addPermanentWidget(savingBar_);
  // Wide enough for big numbers, so the fields do not jump about as the caret moves.
  positionLabel_->setMinimumWidth(
      fontMetrics().horizontalAdvance(QStringLiteral("Ln 999,999,999, Col 99,999")));
  indexLabel_->setMinimumWidth(
      fontMetrics().horizontalAdvance(QStringLiteral("Indexing 100% · ~999,999,999 lines")));
}

void MainWindow::showTransientMessage(const QString& text) {
  statusBar()->showMessage(text, kStatusMessageMs);
}

DocumentTab* MainWindow::currentTab() const { return qobject_cast<DocumentTab*>(tabs_->currentWidget()); }
DocumentTab* MainWindow::tabAt(int index) const { return qobject_cast<DocumentTab*>(tabs_->widget(index)); }
int MainWindow::tabCount() const { return tabs_->count(); }

DocumentTab* MainWindow::findOpenTab(const QString& path, MainWindow** owner) {
  const QString wanted = canonical(path);
  for (MainWindow* window : allWindows()) {
    for (int i = 0; i < window->tabs_->count(); ++i) {
      DocumentTab* tab = window->tabAt(i);
      if (tab && !tab->path().isEmpty() && canonical(tab->path()) == wanted) {
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
  noteRecent(canonical(path));
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
  connect(tab, &DocumentTab::tableViewChanged, this, [this, tab] {
    if (tab == currentTab()) updateActions();
  });
  connect(tab->view(), &TextView::undoStateChanged, this, [this, tab] {
    if (tab == currentTab()) updateActions();
  });
  tabs_->setCurrentIndex(index);
  tab->setFocus();
}

void MainWindow::currentTabChanged() {
  DocumentTab* tab = currentTab();
  setWindowTitle(tab ? tr("%1 — Quorin").arg(tab->title()) : QStringLiteral("Quorin"));
  updateStatus();
  updateActions();
}

void MainWindow::updateStatus() {
  DocumentTab* tab = currentTab();
  for (QLabel* label : {positionLabel_, selectionLabel_, indexLabel_, followLabel_, sizeLabel_,
                        encodingLabel_, lineEndingLabel_}) {
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
  const int64_t selected = tab->view()->selectionLength();
  selectionLabel_->setVisible(selected > 0);
  selectionLabel_->setText(tr("%1 selected").arg(QString::fromStdString(base::formatByteCount(selected))));
  indexLabel_->setText(tab->indexText());
  followLabel_->setVisible(!tab->followText().isEmpty());
  followLabel_->setText(tab->followText());
  sizeLabel_->setText(tab->sizeText());
  encodingLabel_->setText(tab->encodingText());
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
  undoAction_->setEnabled(has && tab->document().undoStore().canUndo());
  redoAction_->setEnabled(has && tab->document().undoStore().canRedo());
  undoAction_->setText(has ? tab->view()->undoActionText() : tr("Undo"));
  redoAction_->setText(has ? tab->view()->redoActionText() : tr("Redo"));
  catchUpAction_->setEnabled(has && tab->isFollowing() && tab->canCatchUp());
  tableAction_->setEnabled(has);
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
  disconnect(connection);
  if (saved) noteRecent(canonical(tab->path()));
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

// ---- recent files and the session ------------------------------------------

QStringList MainWindow::recentFiles() { return QSettings().value(kRecentFilesKey).toStringList(); }

void MainWindow::noteRecent(const QString& path) {
  QStringList recent = recentFiles();
  recent.removeAll(path);
  recent.prepend(path);
  while (recent.size() > kMaxRecentFiles) recent.removeLast();
  QSettings().setValue(kRecentFilesKey, recent);
}

void MainWindow::updateRecentMenu() {
  recentMenu_->clear();
  const QStringList recent = recentFiles();
  for (const QString& path : recent) {
    recentMenu_->addAction(
        QFileInfo(path).fileName() + QStringLiteral("  —  ") + QFileInfo(path).absolutePath(), this,
        [this, path] { openFileReportingErrors(path); });
  }
  if (recent.isEmpty()) recentMenu_->addAction(tr("No Recent Files"))->setEnabled(false);
  recentMenu_->addSeparator();
  recentMenu_->addAction(tr("Clear Menu"), this, [] { QSettings().remove(kRecentFilesKey); });
}

void MainWindow::saveSession() {
  QVariantList documents;
  for (MainWindow* window : allWindows()) {
    for (int i = 0; i < window->tabs_->count(); ++i) {
      const DocumentTab* tab = window->tabAt(i);
      if (!tab || tab->path().isEmpty()) continue;
      const auto& mode = tab->document().openMode();
      QVariantMap entry;
      entry[QStringLiteral("path")] = tab->path();
      entry[QStringLiteral("mode")] = static_cast<int>(mode);
      entry[QStringLiteral("caret")] = QVariant::fromValue<qlonglong>(tab->view()->caret());
      entry[QStringLiteral("top")] = QVariant::fromValue<qlonglong>(tab->view()->topOffset());
      documents.append(entry);
    }
  }
  QSettings().setValue(kSessionKey, documents);
}

void MainWindow::restoreSession() {
  const QVariantList documents = QSettings().value(kSessionKey).toList();
  for (const QVariant& value : documents) {
    const QVariantMap entry = value.toMap();
    const QString path = entry.value(QStringLiteral("path")).toString();
    if (path.isEmpty() || !QFileInfo(path).isFile() || findOpenTab(path)) continue;
    storage::LargeFileOpenRequest mode;
    const int savedMode = entry.value(QStringLiteral("mode")).toInt();
    // Slices and tails are chosen afresh, since the file has moved on; the other modes are kept.
    if (savedMode == static_cast<int>(storage::LargeFileOpenMode::readOnlyInspect))
      mode.mode = storage::LargeFileOpenMode::readOnlyInspect;
    const bool large = QFileInfo(path).size() > fastOpenThreshold();
    const bool asked = large && savedMode != static_cast<int>(storage::LargeFileOpenMode::wholeFileVirtual) &&
                       savedMode != static_cast<int>(storage::LargeFileOpenMode::readOnlyInspect);
    if (asked ? openFile(path) : openFileWithMode(path, mode)) continue;
    DocumentTab* tab = findOpenTab(path);
    if (!tab) continue;
    const qlonglong top = entry.value(QStringLiteral("top")).toLongLong();
    const qlonglong caret = entry.value(QStringLiteral("caret")).toLongLong();
    tab->view()->setCaret(caret);
    tab->view()->scrollToOffset(top);
    tab->view()->setCaret(caret);
  }
}

}  // namespace quorin::app
