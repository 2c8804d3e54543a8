#include "app/bookmarks/BookmarksTour.h"

#include <QTableView>

#include "app/DocumentTab.h"
#include "app/MainWindow.h"
#include "app/WindowSupport.h"
#include "app/bookmarks/BookmarksPanel.h"
#include "app/filter/FilterBar.h"
#include "app/find/FindBar.h"
#include "app/logs/LogPicturesWiring.h"
#include "app/logs/TimelinePanel.h"
#include "app/view/TextView.h"

namespace quorin::app {
namespace {}  // namespace

void tourBookmarks(MainWindow* window, const std::function<void(QWidget*, const QString&)>& shoot) {
  DocumentTab* tab = window->currentTab();
  if (!tab) return;
  tab->setFilterEnabled(false);
  tab->filterBar()->close();
  tab->findBar()->setQuery(QStringLiteral("failed"));
  tab->bookmarkAllMatches();
  pumpEvents(600);
  tab->findBar()->close();
  const auto lines = tab->bookmarks().set().lines();
  if (lines.size() < 4) return;
  tab->setBookmarkNote(lines[1], QStringLiteral("First timeout after the deploy at 10:00"));
  tab->setBookmarkNote(lines[3], QStringLiteral("Same order retried twice — see the payment service log"));
  goToLine(tab, lines[3] + 6);
  window->timeline()->hide();
  window->bookmarksPanel()->show();
  pumpEvents(100);  // docked first, then widened
  window->resizeDocks({window->bookmarksPanel()}, {window->height() / 3}, Qt::Vertical);
  window->bookmarksPanel()->table()->selectRow(3);
  pumpEvents(400);
  tab->view()->setFocus();
  shoot(window, QStringLiteral("bookmarks-panel"));
}

}  // namespace quorin::app
