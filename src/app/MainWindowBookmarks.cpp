// The main window's Bookmarks menu and panel: toggle, step, notes, clear,
// bookmark every match or every shown line, and the panel listing them.
#include <QAbstractItemView>
#include <QApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QVBoxLayout>

#include "app/DocumentTab.h"
#include "app/MainWindow.h"
#include "app/bookmarks/BookmarkTexts.h"
#include "app/bookmarks/BookmarksPanel.h"
#include "app/filter/FilterBar.h"

namespace quorin::app {

void MainWindow::createBookmarksMenu() {
  bookmarksPanel_ = new BookmarksPanel(this);
  addDockWidget(Qt::BottomDockWidgetArea, bookmarksPanel_);
  bookmarksPanel_->hide();  // Bookmarks ▸ Bookmarks Panel

  QMenu* menu = menuBar()->addMenu(tr("&Bookmarks"));
  auto onTab = [this](auto method) {
    return [this, method] {
      if (DocumentTab* tab = currentTab()) method(tab);
    };
  };
  menu->addAction(tr("&Toggle Bookmark"), QKeySequence(Qt::CTRL | Qt::Key_F2), this,
                  onTab([](DocumentTab* t) { t->toggleBookmark(); }));
  menu->addAction(tr("&Next Bookmark"), QKeySequence(Qt::Key_F2), this, [this] {
    // F2 in a table (the Table view, the bookmarks panel) edits its cell, as it does everywhere.
    if (auto* table = qobject_cast<QAbstractItemView*>(QApplication::focusWidget())) {
      if (table->currentIndex().isValid()) return void(table->edit(table->currentIndex()));
    }
    if (DocumentTab* tab = currentTab()) tab->stepToBookmark(true);
  });
  menu->addAction(tr("&Previous Bookmark"), QKeySequence(Qt::SHIFT | Qt::Key_F2), this,
                  onTab([](DocumentTab* t) { t->stepToBookmark(false); }));
  menu->addAction(tr("Edit &Note…"), this, onTab([this](DocumentTab* t) { editBookmarkNote(t); }));
  menu->addSeparator();
  menu->addAction(tr("Bookmark All &Matches"), this, onTab([](DocumentTab* t) { t->bookmarkAllMatches(); }));
  menu->addAction(tr("Bookmark &Shown Lines"), this, onTab([](DocumentTab* t) { t->bookmarkShownLines(); }));
  menu->addAction(tr("Show Only &Bookmarked Lines"), this, onTab([](DocumentTab* t) {
                    t->filterBar()->show();
                    t->filterBar()->addBookmarkedRule(filter::RuleAction::include);
                  }));
  menu->addSeparator();
  menu->addAction(tr("&Clear All Bookmarks"), this, onTab([](DocumentTab* t) { t->clearBookmarks(); }));
  menu->addSeparator();
  QAction* panel = bookmarksPanel_->toggleViewAction();
  panel->setText(tr("Bookmarks &Panel"));
  panel->setShortcut(QKeySequence(tr("Ctrl+Shift+B")));
  menu->addAction(panel);
}

void MainWindow::editBookmarkNote(DocumentTab* tab) {
  const int64_t line = tab->caretLine();
  const auto note = tab->bookmarks().set().note(line);
  QDialog dialog(this);
  dialog.setWindowTitle(BookmarkTexts::noteTitle(line));
  auto* layout = new QVBoxLayout(&dialog);
  layout->addWidget(new QLabel(tr("A note on this line, kept with its bookmark:"), &dialog));
  auto* field = new QPlainTextEdit(&dialog);
  field->setPlainText(QString::fromStdString(note.value_or(std::string())));
  field->setTabChangesFocus(true);
  layout->addWidget(field);
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
  connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
  connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
  layout->addWidget(buttons);
  dialog.resize(460, 240);
  // Editing the note of a line without a bookmark bookmarks it.
  if (dialog.exec() == QDialog::Accepted) tab->setBookmarkNote(line, field->toPlainText());
}

}  // namespace quorin::app
