#include <gtest/gtest.h>

#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>
#include <memory>

#include "ViewTestSupport.h"
#include "app/goto/GoToField.h"
#include "app/view/TextView.h"
#include "filter/FilterProjection.h"

namespace quorin::app {
namespace {

constexpr int kLineBytes = 8;  // "line 07\n"

std::string numberedLines(int count) {
  std::string text;
  for (int i = 0; i < count; ++i) text += "line " + std::string(i < 10 ? "0" : "") + std::to_string(i) + "\n";
  return text;
}

// A filter's projection over `lineCount` lines showing `shown` (sorted).
std::shared_ptr<const filter::FilterProjection> showing(int64_t lineCount, const std::vector<int64_t>& shown,
                                                        bool complete = true) {
  search::LineVisibilityBitset bits;
  int64_t next = 0;
  for (const int64_t line : shown) {
    bits.appendRun(line - next, false);
    bits.appendRun(1, true);
    next = line + 1;
  }
  bits.appendRun(lineCount - next, false);
  bits.rebuildRankDirectory();
  return std::make_shared<filter::FilterProjection>(std::move(bits), filter::FilterOptions{}, 0, 0, complete);
}

struct FilteredView : testing::ViewOn {
  explicit FilteredView(int lines = 40) : ViewOn(numberedLines(lines)) {}
  int64_t caretLine() const { return view->caret() / kLineBytes; }
  std::vector<int64_t> drawnLines() const {
    std::vector<int64_t> lines;
    for (const int64_t start : view->visibleLineStarts()) lines.push_back(start / kLineBytes);
    return lines;
  }
  // The row (from the top) where the view draws `line`.
  std::ptrdiff_t rowOf(int64_t line) const {
    const auto lines = drawnLines();
    return std::find(lines.begin(), lines.end(), line) - lines.begin();
  }
};

const std::vector<int64_t> kShown = {0, 1, 5, 6, 10, 15, 16, 17, 30, 39};

TEST(FilteredViewTest, DrawsAndMovesOverTheShownLinesOnly) {
  FilteredView on;
  on.view->setLineProjection(showing(40, kShown));
  const auto drawn = on.drawnLines();
  ASSERT_GE(drawn.size(), 5U);
  EXPECT_EQ(std::vector<int64_t>(drawn.begin(), drawn.begin() + 5), (std::vector<int64_t>{0, 1, 5, 6, 10}));
  EXPECT_LE(on.view->verticalScrollBar()->maximum(), static_cast<int>(kShown.size()));

  on.view->setCaret(1 * kLineBytes + 3);
  on.key(Qt::Key_Down);  // over the hidden 2…4, keeping the column
  EXPECT_EQ(on.view->caret(), 5 * kLineBytes + 3);
  on.key(Qt::Key_Up);
  EXPECT_EQ(on.caretLine(), 1);
  on.key(Qt::Key_End);
  on.key(Qt::Key_Right);  // past the line's end: the next shown line
  EXPECT_EQ(on.view->caret(), 5 * kLineBytes);
  on.key(Qt::Key_Left);
  EXPECT_EQ(on.view->caret(), 1 * kLineBytes + 7);
  on.key(Qt::Key_PageDown);
  EXPECT_TRUE(std::find(kShown.begin(), kShown.end(), on.caretLine()) != kShown.end()) << on.caretLine();
  EXPECT_GT(on.caretLine(), 10);
  on.key(Qt::Key_End, Qt::ControlModifier);
  EXPECT_EQ(on.caretLine(), 39);
  on.key(Qt::Key_Down);  // no shown line below: the end of the last one
  EXPECT_EQ(on.view->caret(), 39 * kLineBytes + 7);

  // The scroll bar counts rows: its end shows the last shown lines.
  on.view->verticalScrollBar()->setValue(on.view->verticalScrollBar()->maximum());
  EXPECT_EQ(on.drawnLines().back(), 39);
  on.view->scrollByRows(-100);
  EXPECT_EQ(on.drawnLines().front(), 0);
}

TEST(FilteredViewTest, SwitchingKeepsTheCaretLineAtItsHeight) {
  FilteredView on;
  on.view->setLineProjection(showing(40, kShown));
  on.view->setCaret(10 * kLineBytes + 2);
  const auto row = on.rowOf(10);
  on.view->setLineProjection(nullptr);
  EXPECT_EQ(on.view->caret(), 10 * kLineBytes + 2);
  EXPECT_EQ(on.rowOf(10), row);
  EXPECT_EQ(on.drawnLines()[static_cast<size_t>(row) + 1], 11);

  // On again with the caret on a hidden line: the nearest shown line (10 is
  // nearer to 12 than 15 is).
  on.view->setCaret(12 * kLineBytes);
  on.view->setLineProjection(showing(40, kShown));
  EXPECT_EQ(on.caretLine(), 10);
  EXPECT_LT(on.rowOf(10), static_cast<std::ptrdiff_t>(on.drawnLines().size()));

  // A filter still computing leaves a caret past its prefix where it is.
  on.view->setCaret(35 * kLineBytes);
  on.view->setLineProjection(showing(20, {0, 1, 5}, false));
  EXPECT_EQ(on.caretLine(), 35);
  on.view->setLineProjection(nullptr);
  EXPECT_EQ(on.caretLine(), 35);
}

TEST(FilteredViewTest, GoToAHiddenLineLandsOnTheNearestShownOneAndSaysSo) {
  FilteredView on;
  on.queue->runAll();
  on.main.runPending();
  on.view->setLineProjection(showing(40, kShown));
  QSignalSpy status(on.view.get(), &TextView::statusMessage);
  GoToField field(on.doc, *on.view, on.main);
  field.setText("14");  // line 13 from 0: 15 is nearer than 10
  field.go();
  EXPECT_EQ(on.view->caret(), 15 * kLineBytes);
  ASSERT_EQ(status.count(), 1);
  EXPECT_EQ(status.takeFirst().at(0).toString(), "Line 14 is hidden by the filter — went to line 16");
  field.setText("11");  // shown: no message
  field.go();
  EXPECT_EQ(on.caretLine(), 10);
  EXPECT_EQ(status.count(), 0);
  // Other jumps (the overview, a level step) land on a shown line too.
  on.view->select(31 * kLineBytes, 31 * kLineBytes);
  EXPECT_EQ(on.caretLine(), 30);
}

TEST(FilteredViewTest, EditsBeforeTheNewProjectionKeepTheRowsSensible) {
  FilteredView on;
  on.view->setLineProjection(showing(40, kShown));
  // Remove most lines while the projection still counts forty.
  on.view->select(2 * kLineBytes, 38 * kLineBytes);
  on.key(Qt::Key_Delete);
  ASSERT_EQ(on.doc->length(), 4 * kLineBytes);
  for (const int64_t start : on.view->visibleLineStarts()) EXPECT_LE(start, on.doc->length());
  on.key(Qt::Key_Down);
  on.key(Qt::Key_PageDown);
  on.key(Qt::Key_Return);
  on.view->verticalScrollBar()->setValue(on.view->verticalScrollBar()->maximum());
  EXPECT_LE(on.view->caret(), on.doc->length());
  // The spliced projection arrives: the view follows it.
  on.view->setLineProjection(showing(5, {0, 3}));
  on.queue->runAll();
  on.main.runPending();
  on.view->refreshText();
  const auto lines = on.doc->snapshot().lines;
  EXPECT_EQ(on.view->visibleLineStarts(), (std::vector<int64_t>{0, lines.lineStart(3).value()}));
}

}  // namespace
}  // namespace quorin::app
