// The main window's menus and status bar.
#include <QApplication>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QProgressBar>
#include <QStatusBar>

#include "app/DocumentTab.h"
#include "app/MainWindow.h"
#include "app/WindowSupport.h"
#include "app/find/FindBar.h"
#include "app/goto/GoToField.h"
#include "app/logs/TimelinePanel.h"
#include "app/view/TextView.h"

namespace quorin::app {
namespace {

QLabel* addStatusLabel(QStatusBar* bar) {
  auto* label = new QLabel(bar);
  label->setContentsMargins(6, 0, 6, 0);
  bar->addPermanentWidget(label);
  return label;
}

}  // namespace

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
  file->addSeparator();
  inPlaceAction_ = file->addAction(tr("Patch Small Edits in &Place"));
  inPlaceAction_->setCheckable(true);
  inPlaceAction_->setChecked(inPlaceSavePreference());
  inPlaceAction_->setToolTip(
      tr("Save edits that keep the file's length by writing just the changed bytes, instead of rewriting the "
         "whole file"));
  connect(inPlaceAction_, &QAction::toggled, this, [](bool on) { applyInPlaceSavePreference(on); });
  file->addSeparator();
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

  createGoMenu();
  createFilterMenu();
  createBookmarksMenu();

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
  view->addSeparator();
  view->addAction(timeline_->toggleViewAction());

  QMenu* tools = menuBar()->addMenu(tr("&Tools"));
  tools->addAction(tr("&Compare With…"), QKeySequence(tr("Ctrl+Shift+D")), this, &MainWindow::compareCurrent);

  QMenu* help = menuBar()->addMenu(tr("&Help"));
  help->addAction(tr("&Keyboard Shortcuts"), QKeySequence::HelpContents, this, [this] {
    QMessageBox box(QMessageBox::NoIcon, tr("Keyboard Shortcuts"), tr("Keyboard shortcuts of Quorin"),
                    QMessageBox::Ok, this);
    box.setInformativeText(shortcutsText());
    box.exec();
  });
  QAction* about = help->addAction(tr("&About Quorin"), this, [this] {
    QMessageBox::about(
        this, tr("About Quorin"),
        tr("<b>Quorin</b> %1<p>A text editor for very large files: multi-gigabyte logs and CSV "
           "exports open at once, and edits save without rewriting what did not change.</p>")
            .arg(QApplication::applicationVersion().toHtmlEscaped()));
  });
  about->setMenuRole(QAction::AboutRole);
}

QString MainWindow::shortcutsText() const {
  QStringList rows;
  for (QAction* menuAction : menuBar()->actions()) {
    const QMenu* menu = menuAction->menu();
    if (!menu) continue;
    for (QAction* action : menu->actions()) {
      if (action->shortcut().isEmpty()) continue;
      rows.push_back(tr("%1: %2").arg(action->shortcut().toString(QKeySequence::NativeText),
                                      QString(action->text()).remove(QLatin1Char('&'))));
    }
  }
  // Keys that belong to a panel, not a menu.
  rows.push_back(tr("Enter / Shift+Enter in the find field: next / previous match"));
  rows.push_back(tr("Esc: close the find bar, the filter bar or the go-to field"));
  rows.push_back(tr("Enter in the filter's From or To field: apply the time window"));
  rows.push_back(tr("Enter / Delete in the bookmarks panel: go to the line / remove the bookmark"));
  rows.push_back(tr("Alt+Down / Alt+Up in the compare window: next / previous change"));
  rows.push_back(tr("F5 in the compare window: compare again"));
  return rows.join(QLatin1Char('\n'));
}

void MainWindow::applyInPlaceSavePreference(bool enabled) {
  setInPlaceSavePreference(enabled);
  for (MainWindow* window : allWindows()) {
    window->inPlaceAction_->setChecked(enabled);
    for (int i = 0; i < window->tabs_->count(); ++i) {
      if (DocumentTab* tab = window->tabAt(i)) tab->document().setInPlaceSaveEnabled(enabled);
    }
  }
}

void MainWindow::createStatusBar() {
  QStatusBar* bar = statusBar();
  positionLabel_ = addStatusLabel(bar);
  timeLabel_ = addStatusLabel(bar);
  timeLabel_->setToolTip(tr("The caret line's time, and the time since the previous message"));
  bookmarkLabel_ = addStatusLabel(bar);
  bookmarkLabel_->setToolTip(tr("The time from the nearest bookmark above to the caret line"));
  selectionLabel_ = addStatusLabel(bar);
  followLabel_ = addStatusLabel(bar);
  filterLabel_ = addStatusLabel(bar);
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
  timeLabel_->setMinimumWidth(
      fontMetrics().horizontalAdvance(QStringLiteral("2026-03-20 12:00:01.250 · +1.25 s since previous")));
  indexLabel_->setMinimumWidth(
      fontMetrics().horizontalAdvance(QStringLiteral("Indexing 100% · ~999,999,999 lines")));
}

}  // namespace quorin::app
