#include <gtest/gtest.h>

#include <QApplication>
#include <QImage>
#include <QMenu>
#include <QMenuBar>
#include <QSignalSpy>
#include <QTableView>
#include <QTest>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>

#include "app/DocumentTab.h"
#include "app/MainWindow.h"
#include "app/QtMainQueue.h"
#include "app/TabTestSupport.h"
#include "app/bookmarks/BookmarksModel.h"
#include "app/bookmarks/BookmarksPanel.h"
#include "app/find/FindBar.h"
#include "app/view/TextView.h"

namespace quorin::app {
namespace {

using bookmarks::Bookmark;

// "2026-03-20 12:MM:SS LEVEL message N", a line a second: ERROR on every 10th line, INFO otherwise.
std::string generatedLog(int lines) {
  std::string text;
  for (int i = 0; i < lines; ++i) {
    char line[96];
    std::snprintf(line, sizeof line, "2026-03-20 12:%02d:%02d %s message %d\n", i / 60 % 60, i % 60,
                  i % 10 == 0 ? "ERROR" : "INFO", i);
    text += line;
  }
  return text;
}

std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

// A tab whose sidecars go to a directory of the test's own.
struct Tab : TabHarness {
  Tab() {
    if (const char* old = std::getenv("XDG_DATA_HOME")) oldDataHome = old;
    ::setenv("XDG_DATA_HOME", dataHome.path().c_str(), 1);
  }
  ~Tab() {
    tab.reset();  // writes its sidecar while the directory is there
    ::setenv("XDG_DATA_HOME", oldDataHome.c_str(), 1);
  }
  void openAndSettle(std::string_view text) {
    open(text, "app.log");
    tab->resize(900, 400);
    messages = std::make_unique<QSignalSpy>(tab.get(), &DocumentTab::statusMessage);
    ASSERT_TRUE(pumpUntil([&] { return !tab->isReadingBookmarks() && tab->logData()->complete; }));
  }
  bool pumpUntil(const std::function<bool()>& done) {
    for (int i = 0; i < 3000 && !done(); ++i) {
      main.waitAndRun(std::chrono::milliseconds(2));
      QCoreApplication::processEvents();
    }
    QCoreApplication::processEvents();  // the coalesced change notice
    return done();
  }
  void caretTo(int64_t line) {
    const int64_t at = document->snapshot().lines.lineStart(line).value();
    tab->view()->select(at, at);
  }
  QString lastMessage() const {
    return messages->isEmpty() ? QString() : messages->last().first().toString();
  }
  std::vector<std::filesystem::path> sidecars() const {
    std::vector<std::filesystem::path> found;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(dataHome.path() / "Quorin" / "sidecars", ec))
      if (entry.path().extension() == ".json") found.push_back(entry.path());
    return found;
  }
  // The y of the first gutter pixel in a bookmark's colour, or -1.
  int markY() const {
    const QImage image = tab->view()->viewport()->grab().toImage();
    const QRgb plain = TextView::lineMarkColor(false).rgb();
    for (int y = 0; y < image.height(); ++y)
      if (image.pixel(4, y) == plain) return y;
    return -1;
  }

  testing::TempDir dataHome;
  std::string oldDataHome;
  std::unique_ptr<QSignalSpy> messages;
};

TEST(AppBookmarksTest, ToggleStepWrapAndTheGutterMarkFollowsEditsAndUndo) {
  Tab t;
  t.openAndSettle("zero\none\ntwo\nthree\nfour\nfive\nsix\n");
  t.tab->show();
  t.caretTo(2);
  t.tab->toggleBookmark();
  t.caretTo(5);
  t.tab->toggleBookmark();
  EXPECT_EQ(t.tab->bookmarks().set().lines(), (std::vector<int64_t>{2, 5}));
  EXPECT_FALSE(t.document->isModified()) << "a bookmark is not an edit";

  t.tab->stepToBookmark(true);  // from 5: round to 2
  EXPECT_EQ(t.tab->caretLine(), 2);
  EXPECT_EQ(t.lastMessage().toStdString(), "Wrapped to the first bookmark");
  const qsizetype said = t.messages->size();
  t.tab->stepToBookmark(true);
  EXPECT_EQ(t.tab->caretLine(), 5);
  EXPECT_EQ(t.messages->size(), said) << "no message without a wrap";
  t.tab->stepToBookmark(false);
  t.tab->stepToBookmark(false);
  EXPECT_EQ(t.tab->caretLine(), 5);
  EXPECT_EQ(t.lastMessage().toStdString(), "Wrapped to the last bookmark");

  // Two lines typed above both marks move them down two rows; undo puts them back.
  t.caretTo(5);
  t.tab->toggleBookmark();  // only line 2 now, drawn in the gutter
  const int before = t.markY();
  ASSERT_GE(before, 0);
  t.caretTo(0);
  t.tab->view()->insertText(QStringLiteral("new\nnew\n"));
  EXPECT_EQ(t.tab->bookmarks().set().lines(), std::vector<int64_t>{4});
  const int moved = t.markY();
  EXPECT_GT(moved, before);
  t.tab->view()->undo();
  EXPECT_EQ(t.tab->bookmarks().set().lines(), std::vector<int64_t>{2});
  EXPECT_EQ(t.markY(), before);
  t.tab->view()->redo();
  EXPECT_EQ(t.markY(), moved);

  // A click on the mark takes it away; another puts it back. The caret stays.
  const int64_t caret = t.tab->view()->caret();
  QTest::mouseClick(t.tab->view()->viewport(), Qt::LeftButton, {}, QPoint(4, moved));
  EXPECT_TRUE(t.tab->bookmarks().set().empty());
  QTest::mouseClick(t.tab->view()->viewport(), Qt::LeftButton, {}, QPoint(4, moved));
  EXPECT_EQ(t.tab->bookmarks().set().lines(), std::vector<int64_t>{4});
  EXPECT_EQ(t.tab->view()->caret(), caret);
}

TEST(AppBookmarksTest, TheSidecarIsWrittenOnCloseAndReadBackReanchoredOnReopen) {
  Tab t;
  const std::string text = "alpha\nbravo\ncharlie\ndelta\necho\nfoxtrot\n";
  t.openAndSettle(text);
  t.caretTo(1);
  t.tab->toggleBookmark();
  t.tab->setBookmarkNote(3, QStringLiteral("why, \"this\"\nsecond line"));
  EXPECT_TRUE(t.sidecars().empty()) << "written a second after the last change, not at once";
  t.tab.reset();  // closing writes it
  ASSERT_EQ(t.sidecars().size(), 1U);

  // Closed before the line index let the sidecar be read: it is left as it was.
  t.document.reset();
  t.open(text, "app.log", 2);
  ASSERT_TRUE(t.tab->isReadingBookmarks());
  t.tab->toggleBookmark();
  t.tab.reset();

  // The same file again: the same bookmarks and notes.
  t.document.reset();
  t.openAndSettle(text);
  EXPECT_EQ(t.tab->bookmarks().set().all(),
            (std::vector<Bookmark>{{1, ""}, {3, "why, \"this\"\nsecond line"}}));
  EXPECT_EQ(t.lastMessage().toStdString(), "2 bookmarks restored");
  t.tab.reset();

  // Rewritten by another program: two lines above, and "bravo" gone. Delta's
  // bookmark follows its text; bravo's is lost, not moved to a wrong line.
  t.document.reset();
  t.openAndSettle("new\nnew\nalpha\nBRAVO\ncharlie\ndelta\necho\nfoxtrot\n");
  EXPECT_EQ(t.tab->bookmarks().set().all(), (std::vector<Bookmark>{{5, "why, \"this\"\nsecond line"}}));
  ASSERT_EQ(t.tab->lostBookmarks().size(), 1U);
  EXPECT_EQ(t.tab->lostBookmarks()[0].line, 1);
  BookmarksPanel panel;
  panel.showTab(t.tab.get());
  const auto* model = panel.model();
  ASSERT_EQ(model->rowCount(), 2);
  EXPECT_EQ(model->index(1, BookmarksModel::textColumn).data().toString().toStdString(),
            "Lost — the line was not found in the changed file");
  EXPECT_FALSE(model->lineAt(1).has_value());
  // Delete drops a lost one from the list and, at the next write, from the sidecar.
  panel.table()->selectRow(1);
  panel.removeSelected();
  t.pumpUntil([] { return true; });
  EXPECT_TRUE(t.tab->lostBookmarks().empty());
  EXPECT_EQ(model->rowCount(), 1);

  // The re-anchored lines are written back, without the lost bookmark deleted.
  t.tab.reset();
  t.document.reset();
  t.openAndSettle("new\nnew\nalpha\nBRAVO\ncharlie\ndelta\necho\nfoxtrot\n");
  EXPECT_EQ(t.tab->bookmarks().set().lines(), std::vector<int64_t>{5});
  EXPECT_TRUE(t.tab->lostBookmarks().empty());
  EXPECT_EQ(t.sidecars().size(), 1U);

  // A second after a change the sidecar is written; a failure is said once, however many writes fail.
  const auto blocked = t.dataHome.write("not-a-directory", "");
  ::setenv("XDG_DATA_HOME", blocked.c_str(), 1);
  t.caretTo(0);
  t.tab->toggleBookmark();
  const auto failed = [&] {
    return std::ranges::count_if(*t.messages, [](const QList<QVariant>& message) {
      return message.first().toString().startsWith(QStringLiteral("Bookmarks could not be saved: "));
    });
  };
  ASSERT_TRUE(t.pumpUntil([&] { return failed() == 1; }));
  EXPECT_EQ(t.lastMessage().toStdString(), "Bookmarks could not be saved: mkdir(" + blocked.string() +
                                               "/Quorin/sidecars) failed: Not a directory");
  t.tab->toggleBookmark();
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(1300);
  t.pumpUntil([&] { return std::chrono::steady_clock::now() > until; });  // the second write fails too
  EXPECT_EQ(failed(), 1);
}

TEST(AppBookmarksTest, AReloadPutsTheBookmarksOnTheirLinesInTheNewText) {
  Tab t;
  t.openAndSettle("alpha\nbravo\ncharlie\ndelta\n");
  t.tab->setBookmarkNote(3, QStringLiteral("here"));
  t.caretTo(1);
  t.tab->toggleBookmark();
  // A second later the sidecar holds them, with their lines' texts.
  ASSERT_TRUE(t.pumpUntil([&] { return t.sidecars().size() == 1; }));
  t.dir.write("app.log", "new\nnew\nalpha\ncharlie\ndelta\n");
  ASSERT_TRUE(t.document->reload());
  t.lineQueue->runAll();
  ASSERT_TRUE(t.pumpUntil([&] { return !t.tab->isReadingBookmarks(); }));
  EXPECT_EQ(t.tab->bookmarks().set().all(), (std::vector<Bookmark>{{4, "here"}}));
  ASSERT_EQ(t.tab->lostBookmarks().size(), 1U);
  EXPECT_EQ(t.tab->lostBookmarks()[0].line, 1);
}

TEST(AppBookmarksTest, AllMatchesShownLinesAndTheBookmarkedFilterRule) {
  Tab t;
  t.openAndSettle(generatedLog(300));
  t.tab->findBar()->setQuery(QStringLiteral("ERROR"));
  t.tab->bookmarkAllMatches();
  ASSERT_TRUE(t.pumpUntil([&] { return !t.tab->isBookmarkingMatches(); }));
  const auto lines = t.tab->bookmarks().set().lines();
  ASSERT_EQ(lines.size(), 30U);
  EXPECT_EQ(lines[0], 0);
  EXPECT_EQ(lines[29], 290);
  EXPECT_EQ(t.lastMessage().toStdString(), "Bookmarked 30 lines with a match");

  // A filter of the bookmarked lines follows the bookmarks as they change.
  const auto settled = [&](int64_t shown) {
    return t.pumpUntil([&] {
      const auto projection = t.tab->filterProjection();
      return projection && projection->isComplete() && t.tab->view()->lineProjection() == projection &&
             projection->visibleLineCount() == shown;
    });
  };
  ASSERT_TRUE(t.tab->setFilterOptions({.rules = {{.condition = filter::BookmarkedCondition{}}}}).has_value());
  ASSERT_TRUE(settled(30));
  t.caretTo(10);
  t.tab->toggleBookmark();
  EXPECT_TRUE(settled(29));

  // Shown lines: the 29 the filter shows, plus line 5 by hand, and after a
  // clear exactly the shown ones come back.
  t.tab->clearBookmarks();
  EXPECT_TRUE(settled(0));
  ASSERT_TRUE(t.tab->setFilterOptions({.rules = {{.condition = filter::LevelCondition{logs::Level::error}}}})
                  .has_value());
  ASSERT_TRUE(settled(30));
  t.tab->bookmarkShownLines();
  EXPECT_EQ(t.tab->bookmarks().set().lines(), lines);
  EXPECT_EQ(t.lastMessage().toStdString(), "Bookmarked 30 shown lines");
}

TEST(AppBookmarksTest, ThePanelListsTimesNotesAndTextsAndExportsCsv) {
  Tab t;
  t.openAndSettle(generatedLog(200));
  t.tab->setBookmarkNote(10, QStringLiteral("first, \"quoted\""));
  t.caretTo(135);
  t.tab->toggleBookmark();
  // From the nearest bookmark above the caret's line, not its own.
  EXPECT_EQ(t.tab->bookmarkTimeText().toStdString(), "+2 min 5 s since bookmark at line 11");
  t.caretTo(140);
  EXPECT_EQ(t.tab->bookmarkTimeText().toStdString(), "+5 s since bookmark at line 136");
  t.pumpUntil([] { return true; });

  BookmarksPanel panel;
  panel.showTab(t.tab.get());
  auto* model = panel.model();
  ASSERT_EQ(model->rowCount(), 2);
  auto cell = [&](int row, int column) { return model->index(row, column).data().toString().toStdString(); };
  EXPECT_EQ(cell(0, BookmarksModel::lineColumn), "11");
  EXPECT_EQ(cell(0, BookmarksModel::timeColumn), "2026-03-20 12:00:10");
  EXPECT_EQ(cell(0, BookmarksModel::textColumn), "2026-03-20 12:00:10 ERROR message 10");
  EXPECT_EQ(cell(1, BookmarksModel::noteColumn), "");

  // A note typed in place; a note of two lines shows its first.
  ASSERT_TRUE(model->setData(model->index(1, BookmarksModel::noteColumn), QStringLiteral("retry\nthen fail"),
                             Qt::EditRole));
  t.pumpUntil([] { return true; });
  EXPECT_EQ(cell(1, BookmarksModel::noteColumn), "retry");
  EXPECT_EQ(t.tab->bookmarks().set().note(135), "retry\nthen fail");

  const std::string csv =
      "line,time,note,text\r\n"
      "11,2026-03-20 12:00:10,\"first, \"\"quoted\"\"\",2026-03-20 12:00:10 ERROR message 10\r\n"
      "136,2026-03-20 12:02:15,\"retry\nthen fail\",2026-03-20 12:02:15 INFO message 135\r\n";
  EXPECT_EQ(model->toCsv(), csv);
  const QString path = QString::fromStdString((t.dataHome.path() / "marks.csv").string());
  EXPECT_EQ(panel.exportCsv(path), std::nullopt);
  EXPECT_EQ(readFile(path.toStdString()), csv);

  // Delete removes the selected rows' bookmarks; Enter goes to a row's line.
  panel.table()->selectRow(0);
  panel.removeSelected();
  t.pumpUntil([] { return true; });
  EXPECT_EQ(t.tab->bookmarks().set().lines(), std::vector<int64_t>{135});
  ASSERT_EQ(model->rowCount(), 1);
  t.caretTo(0);
  panel.goToRow(0);
  EXPECT_EQ(t.tab->caretLine(), 135);
}

TEST(AppBookmarksTest, NoTwoMenuCommandsShareAKey) {
  QtMainQueue queue;
  auto window = std::make_unique<MainWindow>(queue);
  std::map<QString, QString> taken;
  std::function<void(const QMenu*)> visit = [&](const QMenu* menu) {
    for (QAction* action : menu->actions()) {
      if (action->menu()) visit(action->menu());
      if (action->shortcut().isEmpty()) continue;
      const auto [at, added] = taken.emplace(action->shortcut().toString(), action->text());
      EXPECT_TRUE(added) << action->shortcut().toString().toStdString() << ": "
                         << action->text().toStdString() << " and " << at->second.toStdString();
    }
  };
  for (QAction* action : window->menuBar()->actions())
    if (action->menu()) visit(action->menu());
  EXPECT_EQ(taken.count(QStringLiteral("F2")), 1U);
  EXPECT_EQ(taken.count(QStringLiteral("Ctrl+F2")), 1U);
  EXPECT_EQ(taken.count(QStringLiteral("Shift+F2")), 1U);
}

}  // namespace
}  // namespace quorin::app
