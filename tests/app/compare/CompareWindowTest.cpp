#include <gtest/gtest.h>

#include <QBrush>
#include <QScreen>
#include <QTableView>
#include <fstream>

#include "app/compare/CompareWindow.h"
#include "app/find/PanelTestSupport.h"
#include "dispatch/ManualMainQueue.h"
#include "document/Document.h"
#include "support/ManualExecutor.h"
#include "support/TempDir.h"

namespace quorin::app {
namespace {

struct Sides {
  std::shared_ptr<document::Document> open(const std::string& name, std::string_view text) {
    auto document =
        document::Document::open(dir.write(name, text).string(), testOptions(main, lineQueue)).value();
    lineQueue->runAll();
    return document;
  }

  // Pumps the main queue until the window's comparison (on the worker pool) has finished.
  void waitFor(CompareWindow& window) {
    for (int i = 0; i < 3000 && window.isRunning(); ++i) main.waitAndRun(std::chrono::milliseconds(10));
    ASSERT_FALSE(window.isRunning());
  }

  testing::TempDir dir;
  dispatch::ManualMainQueue main;
  std::shared_ptr<testing::ManualExecutor> lineQueue = std::make_shared<testing::ManualExecutor>();
};

QString text(const CompareRowModel& rows, int row, int column) {
  return rows.data(rows.index(row, column)).toString();
}

TEST(AppCompareWindowTest, RowsPairLinesWithFillersTintChangesAndNavigateBetweenBlocks) {
  Sides sides;
  auto left = sides.open("left.txt", "a\nb\nc\nd\ne\nf");
  auto right = sides.open("right.txt", "a\nB\nc\nd\nnew\nnewer\ne");
  CompareRowModel rows;
  rows.setDisplay(std::make_shared<CompareDisplay>(CompareDisplay{
      compare::CompareSide::of(left->describedSnapshot(), "left.txt"),
      compare::CompareSide::of(right->describedSnapshot(), "right.txt"),
      compare::alignDiff(6, 7, std::vector<compare::DiffChange>{{1, 1, 1, 1}, {4, 0, 4, 2}, {5, 1, 7, 0}})}));

  // a | b≠B | c | d | +new | +newer | e | f−
  ASSERT_EQ(rows.rowCount(), 8);
  EXPECT_EQ(text(rows, 1, CompareRowModel::leftNumber), "2");
  EXPECT_EQ(text(rows, 1, CompareRowModel::leftText), "b");
  EXPECT_EQ(text(rows, 1, CompareRowModel::rightText), "B");
  EXPECT_EQ(text(rows, 4, CompareRowModel::leftNumber), "");  // filler
  EXPECT_EQ(text(rows, 4, CompareRowModel::rightNumber), "5");
  EXPECT_EQ(text(rows, 5, CompareRowModel::rightText), "newer");
  EXPECT_EQ(text(rows, 6, CompareRowModel::leftText), "e");
  EXPECT_EQ(text(rows, 6, CompareRowModel::rightText), "e");
  EXPECT_EQ(text(rows, 7, CompareRowModel::leftText), "f");
  EXPECT_EQ(rows.rightLine(7), compare::kFillerRow);

  const auto tint = [&](int row, int column) {
    return rows.data(rows.index(row, column), Qt::BackgroundRole);
  };
  EXPECT_FALSE(tint(0, CompareRowModel::leftText).isValid());
  EXPECT_TRUE(tint(1, CompareRowModel::leftText).isValid());
  EXPECT_EQ(tint(4, CompareRowModel::leftText).value<QBrush>().style(), Qt::BDiagPattern);  // filler side
  EXPECT_NE(tint(4, CompareRowModel::rightText), tint(1, CompareRowModel::rightText));  // added ≠ changed
  EXPECT_NE(tint(7, CompareRowModel::leftText), tint(4, CompareRowModel::rightText));   // removed ≠ added

  EXPECT_EQ(rows.nextChange(-1), 1);
  EXPECT_EQ(rows.nextChange(1), 4);
  EXPECT_EQ(rows.nextChange(5), 7);  // from inside a block to the next one
  EXPECT_EQ(rows.nextChange(7), std::nullopt);
  EXPECT_EQ(rows.previousChange(8), 7);
  EXPECT_EQ(rows.previousChange(5), 1);  // from inside a block to the one before it
  EXPECT_EQ(rows.previousChange(3), 1);
  EXPECT_EQ(rows.previousChange(1), std::nullopt);
  EXPECT_EQ(rows.blockAt(5), 1);
  EXPECT_EQ(rows.blockAt(6), std::nullopt);
}

TEST(AppCompareWindowTest, ComparesOffTheMainThreadWithOptionsNoticesAndAReport) {
  Sides sides;
  auto left = sides.open("left.txt", "alpha\nBeta\ngamma\n");
  auto right = sides.open("right.txt", "alpha\r\nbeta\r\ngamma\r\n");
  CompareWindow window(left, "left.txt", sides.main);
  window.compareWithDocument(right, "right.txt");
  sides.waitFor(window);

  ASSERT_TRUE(window.outcome());
  EXPECT_EQ(window.summaryText(), "1 change: 1 line removed, 1 line added · change 1 of 1");
  EXPECT_EQ(window.noticeTexts(),
            QStringList{"line endings differ (left LF, right CRLF) and are not compared"});
  EXPECT_EQ(window.table().currentIndex().row(), 1);  // the first change is shown
  EXPECT_FALSE(window.goToNextChange());

  window.setIgnoreCase(true);
  sides.waitFor(window);
  EXPECT_EQ(window.summaryText(), "No differences");
  EXPECT_EQ(window.rows().blockCount(), 0);

  // An unsaved edit is named, and the shown result is marked as out of date.
  ASSERT_TRUE(right->insert(0, "zeta\n", {}, {}));
  EXPECT_TRUE(window.summaryText().endsWith("the text has changed since — Compare Again to refresh"));
  window.compareAgain();
  sides.waitFor(window);
  EXPECT_TRUE(
      window.noticeTexts().contains("right side is the open document's text, unsaved edits included"));

  const QString reportPath = QString::fromStdString((sides.dir.path() / "compare-report.txt").string());
  ASSERT_TRUE(window.saveReportTo(reportPath));
  std::ifstream report(reportPath.toStdString());
  std::string firstLine;
  std::getline(report, firstLine);
  EXPECT_EQ(firstLine, "Quorin compare report");
  const auto failed =
      window.saveReportTo(QString::fromStdString((sides.dir.path() / "no/such/dir/r.txt").string()));
  ASSERT_FALSE(failed);
  EXPECT_TRUE(failed.error().startsWith("Couldn't save the report\n"));
}

TEST(AppCompareWindowTest, TheWindowFitsTheScreen) {
  Sides sides;
  auto left = sides.open("left.txt", "a\n");
  CompareWindow window(left, "left.txt", sides.main);
  window.show();
  const QRect available = window.screen()->availableGeometry();
  EXPECT_LE(window.frameGeometry().height(), available.height());
  EXPECT_LE(window.frameGeometry().width(), available.width());
}

TEST(AppCompareWindowTest, AFileThatCannotBeOpenedFailsWithTheSidesName) {
  Sides sides;
  auto left = sides.open("left.txt", "a\n");
  CompareWindow window(left, "left.txt", sides.main);
  window.compareWithFile(QString::fromStdString((sides.dir.path() / "missing.txt").string()));
  EXPECT_FALSE(window.isRunning());
  EXPECT_TRUE(window.errorText().startsWith(
      "Couldn't compare\nThe file “missing.txt” couldn't be read for comparison.\nopen("));
}

// A file chosen in the window is compared once its line index is complete. The
// handler that waits for it used to drop itself while running, destroying its
// own closure: a crash as soon as a file large enough to index in the
// background finished.
TEST(AppCompareWindowTest, AFileStillIndexingIsComparedOnceItsIndexCompletes) {
  Sides sides;
  auto left = sides.open("left.txt", "line 0\nline 1\n");
  std::string big;
  for (int i = 0; i < 60'000; ++i) big += "line " + std::to_string(i) + "\n";
  const auto path = sides.dir.write("big.txt", big);
  CompareWindow window(left, "left.txt", sides.main);
  window.compareWithFile(QString::fromStdString(path.string()));
  EXPECT_TRUE(window.isRunning());
  sides.waitFor(window);
  ASSERT_TRUE(window.outcome());
  EXPECT_GE(window.outcome()->rightLineCount, 60'000);

  // Closing the window while the other file is still being read leaves nothing behind to call it.
  auto closing = std::make_unique<CompareWindow>(left, "left.txt", sides.main);
  closing->compareWithFile(QString::fromStdString(path.string()));
  closing.reset();
  for (int i = 0; i < 50; ++i) sides.main.waitAndRun(std::chrono::milliseconds(10));
}

}  // namespace
}  // namespace quorin::app
