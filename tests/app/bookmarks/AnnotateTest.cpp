#include <gtest/gtest.h>

#include <QAction>
#include <QPlainTextEdit>
#include <QSettings>
#include <QTest>
#include <fstream>

#include "app/DocumentTab.h"
#include "app/MainWindow.h"
#include "app/QtMainQueue.h"
#include "app/bookmarks/MarkerScan.h"
#include "app/bookmarks/MarkerSettings.h"
#include "app/bookmarks/NotesPanel.h"
#include "app/bookmarks/ReportExport.h"
#include "app/view/TextView.h"
#include "bookmarks/DocumentBookmarks.h"
#include "support/TempDir.h"

namespace quorin::app {
namespace {

QtMainQueue& lastingQueue() {
  static auto* queue = new QtMainQueue;
  return *queue;
}

QAction* actionNamed(const MainWindow& window, const QString& text) {
  for (QAction* action : window.findChildren<QAction*>()) {
    if (action->text() == text) return action;
  }
  return nullptr;
}

std::shared_ptr<bookmarks::DocumentBookmarks> bookmarksOf(DocumentTab& tab) {
  auto marks = NotesPanel::bookmarksOf(tab);
  if (!marks) {
    marks = std::make_shared<bookmarks::DocumentBookmarks>();
    tab.document().setLineAnchors(marks);
  }
  return marks;
}

TEST(AppAnnotateTest, NotesLinkToLinesThatJumpBackAndGoIntoTheReport) {
  testing::TempDir dir;
  std::string text;
  for (int i = 0; i < 200; ++i)
    text += "2026-03-20 12:00:" + std::to_string(10 + i % 50) + " INFO line " + std::to_string(i) + "\n";
  const auto path = dir.write("app.log", text);
  MainWindow window(lastingQueue());
  ASSERT_EQ(window.openFileWithMode(QString::fromStdString(path.string()), {}), std::nullopt);
  DocumentTab* tab = window.currentTab();
  auto marks = bookmarksOf(*tab);
  marks->toggle(120);
  window.notesPanel()->showTab(tab);

  tab->view()->setCaret(tab->document().snapshot().lines.lineStart(149).value());
  actionNamed(window, "Insert &Link to Caret Line")->trigger();
  const QString notes = window.notesPanel()->text();
  EXPECT_TRUE(notes.startsWith("[line 150 · ")) << notes.toStdString();
  EXPECT_TRUE(notes.endsWith(" · 2026-03-20 12:00:59 INFO line 149](quorin:line/150)"))
      << notes.toStdString();
  EXPECT_EQ(marks->notes(), notes.toStdString());  // kept with the bookmarks, for the sidecar

  // Ctrl+Enter on the link takes the caret back to its line.
  tab->view()->setCaret(0);
  QPlainTextEdit* editor = window.notesPanel()->editor();
  editor->moveCursor(QTextCursor::Start);
  QTest::keyClick(editor, Qt::Key_Return, Qt::ControlModifier);
  EXPECT_EQ(tab->view()->caretPosition().line, 150);

  const auto report = dir.path() / "report.html";
  EXPECT_EQ(saveIncidentReport(*tab, QString::fromStdString(report.string()), 1), std::nullopt);
  std::ifstream in(report);
  const std::string html{std::istreambuf_iterator<char>(in), {}};
  EXPECT_TRUE(html.contains("<a href=\"#line-150\">")) << html;
  EXPECT_TRUE(html.contains("Line 121")) << html;
  const auto refused =
      saveIncidentReport(*tab, QString::fromStdString((dir.path() / "no/dir/r.md").string()), 0);
  ASSERT_TRUE(refused);
  EXPECT_TRUE(refused->startsWith("The report could not be saved: open(")) << refused->toStdString();

  // The notes go with the bookmarks into the sidecar, and come back with the file.
  const auto settle = [&] {
    for (int i = 0; i < 3000 && (!window.currentTab() || window.currentTab()->isReadingBookmarks()); ++i) {
      QTest::qWait(2);
    }
  };
  settle();
  window.closeTab(0);
  ASSERT_EQ(window.openFileWithMode(QString::fromStdString(path.string()), {}), std::nullopt);
  settle();
  QTest::qWait(20);  // the change notice
  EXPECT_EQ(window.notesPanel()->text(), notes);
  EXPECT_TRUE(NotesPanel::bookmarksOf(*window.currentTab())->set().contains(120));
  window.closeTab(0);
}

TEST(AppAnnotateTest, MarkSelectionAddsAMarkerInTheNextColourAndBadSettingsAreTold) {
  QSettings().remove(kMarkersKey);
  testing::TempDir dir;
  const auto path = dir.write("m.log", "alpha timeout beta\n" + std::string(300'000, 'x') + " timeout\n");
  MainWindow window(lastingQueue());
  ASSERT_EQ(window.openFileWithMode(QString::fromStdString(path.string()), {}), std::nullopt);
  DocumentTab* tab = window.currentTab();
  tab->view()->select(6, 13);
  window.markSelection();
  window.markSelection();  // twice is once
  auto rules = loadMarkerRules();
  ASSERT_EQ(rules.size(), 1u);
  EXPECT_EQ(rules[0].pattern, "timeout");
  tab->view()->select(0, 5);
  window.markSelection();
  EXPECT_EQ(loadMarkerRules()[1].colour, bookmarks::MarkerColour::green);
  tab->view()->grab();  // draws the long line's marks from its shown piece only
  // The overview strip learns where every marker is from a search of the whole text.
  MarkerScan* scan = MarkerScan::of(*tab);
  ASSERT_NE(scan, nullptr);
  for (int i = 0; i < 2000 && scan->rows(3, 3).empty(); ++i) QTest::qWait(2);
  const auto rows = scan->rows(3, 3);
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_NE(rows[0], 0u);  // "alpha" and "timeout" on line 1
  EXPECT_NE(rows[1], 0u);  // "timeout" at the end of the long line
  EXPECT_EQ(rows[2], 0u);

  QSettings().setValue(kMarkersKey, "[{\"pattern\": 3}]");
  QString problem;
  EXPECT_TRUE(loadMarkerRules(&problem).empty());
  EXPECT_EQ(problem, "Markers: the setting was not used (marker 1: no pattern)");
  QSettings().remove(kMarkersKey);
  window.closeTab(0);
}

}  // namespace
}  // namespace quorin::app
