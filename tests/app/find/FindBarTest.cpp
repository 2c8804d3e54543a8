#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QSettings>
#include <QTest>

#include "app/QtMainQueue.h"
#include "app/find/FindBar.h"
#include "app/find/FindSummary.h"
#include "app/find/PanelTestSupport.h"
#include "filter/FilterProjection.h"

namespace quorin::app {
namespace {

using storage::ByteRange;

// Each test starts with no query history (the settings are the test run's own).
void forgetQueries() { QSettings().remove("QuorinFindQueryHistory"); }

FindBarConfig quickConfig() {
  FindBarConfig config;
  config.countDelayMs = 0;
  config.recountDelayMs = 0;
  return config;
}

QCheckBox* optionBox(const FindBar& bar, const QString& label) {
  for (auto* box : bar.findChildren<QCheckBox*>())
    if (box->text() == label) return box;
  ADD_FAILURE() << "no option " << label.toStdString();
  return nullptr;
}

bool waitForSummary(const FindBar& bar, const QString& text) {
  return QTest::qWaitFor([&] { return bar.summaryText() == text; }, 10'000);
}

TEST(FindBarTest, CountsHighlightsAndStepsWithEveryOption) {
  forgetQueries();
  testing::TempDir dir;
  QtMainQueue& main = lastingQueue();
  auto doc = openTestDocument(dir, "alpha beta\nBeta gamma betamax\nbeta\tend\n", main);
  FakeEditorSurface surface;
  FindBar bar(doc, surface, main, nullptr, quickConfig());
  bar.activate();

  // Case-insensitive unless asked.
  bar.setQuery("beta");
  ASSERT_TRUE(waitForSummary(bar, "4 matches"));
  EXPECT_EQ(surface.highlightsIn({0, 30}), (std::vector<ByteRange>{{6, 10}, {11, 15}, {22, 26}}));
  optionBox(bar, "Case sensitive")->setChecked(true);
  ASSERT_TRUE(waitForSummary(bar, "3 matches"));
  bar.setQuery("BETA");
  ASSERT_TRUE(waitForSummary(bar, "No matches"));
  optionBox(bar, "Case sensitive")->setChecked(false);
  ASSERT_TRUE(waitForSummary(bar, "4 matches"));

  // Enter walks the stored matches, wrapping at the ends.
  bar.findNext();
  EXPECT_EQ(surface.selected.begin, 6);
  EXPECT_EQ(bar.summaryText(), "1 of 4");
  bar.findPrevious();
  EXPECT_EQ(surface.selected.begin, 30);
  EXPECT_EQ(surface.status, "Search wrapped to the end");
  EXPECT_EQ(QSettings().value("QuorinFindQueryHistory").toStringList(), QStringList{"BETA"});

  optionBox(bar, "Match whole word (ignored in regex mode)")->setChecked(true);
  ASSERT_TRUE(waitForSummary(bar, "3 of 3"));  // not "betamax"; the selection is the last match
  optionBox(bar, "Extended (\\n, \\t, \\xHH, \\uHHHH)")->setChecked(true);
  bar.setQuery("beta\\tend");
  ASSERT_TRUE(waitForSummary(bar, "1 match"));
  optionBox(bar, "Regular expression")->setChecked(true);
  bar.setQuery("beta(");
  ASSERT_TRUE(QTest::qWaitFor([&] { return bar.summaryText().startsWith("Invalid regex: "); }, 10'000));
  EXPECT_GT(bar.summaryText().size(), QString("Invalid regex: ").size());
  surface.select(0, 0);
  bar.setQuery("^beta\\b");
  ASSERT_TRUE(waitForSummary(bar, "2 matches"));

  bar.close();
  EXPECT_TRUE(surface.highlightsIn({0, 100}).empty());
}

TEST(FindBarTest, CapTimeOutAndBoundedScanSummaries) {
  forgetQueries();
  testing::TempDir dir;
  QtMainQueue& main = lastingQueue();
  std::string text = "hit hit hit\n" + std::string(200, '.') + "\nhit\n";
  auto doc = openTestDocument(dir, text, main);
  FakeEditorSurface surface;
  FindBarConfig config = quickConfig();
  config.matchCap = 2;
  config.findNextLimits.scanBytes = 100;
  FindBar bar(doc, surface, main, nullptr, config);
  bar.activate();
  bar.setQuery("hit");
  ASSERT_TRUE(waitForSummary(
      bar, "4 matches · first 2 highlighted (over the 2 cap; Replace All needs a narrower query)"));

  // Past the stored matches, next and previous scan at most the bounded distance.
  surface.select(4, 7);
  bar.findNext();
  ASSERT_TRUE(QTest::qWaitFor([&] { return surface.selected.begin == 8; }, 10'000));
  bar.findNext();
  ASSERT_TRUE(QTest::qWaitFor([&] { return !bar.noticeText().isEmpty(); }, 10'000));
  EXPECT_EQ(bar.noticeText(), "No match within the next 64 MB — use Find for a whole-file pass");
  EXPECT_EQ(surface.selected.begin, 8);

  bar.replaceAll();
  ASSERT_TRUE(QTest::qWaitFor([&] { return !bar.isReplacing(); }, 10'000));
  EXPECT_EQ(
      bar.noticeText(),
      "4 matches · first 2 highlighted (over the 2 cap; Replace All needs a narrower query) — nothing was "
      "replaced");
  EXPECT_EQ(wholeText(*doc), text);

  // A count that runs out of time says so, with what it found.
  FindBarConfig hurried = quickConfig();
  hurried.searchLimits.timeBudgetSeconds = 0;
  FindBar rushed(doc, surface, main, nullptr, hurried);
  rushed.activate();
  rushed.setQuery("hit");
  ASSERT_TRUE(waitForSummary(rushed, "Timed out"));
  search::SearchResult partial;
  partial.timedOut = true;
  partial.totalMatchCount = 1234;
  EXPECT_EQ(resultSummary(partial, 1234, 2'000'000), "1,234 matches (timed out)");
  partial.timedOut = false;
  partial.truncated = true;
  partial.totalMatchCount = 2'500'000;
  EXPECT_EQ(
      resultSummary(partial, 2'000'000, 2'000'000),
      "2,500,000 matches · first 2,000,000 highlighted (over the 2,000,000 cap; Replace All needs a narrower "
      "query)");
  EXPECT_EQ(countingSummary({50, 200, 1'234'567}), "Searching… 25% · 1,234,567 matches so far");
}

TEST(FindBarTest, ReplaceAllIsOneUndoStepAndEditsMarkResultsStale) {
  forgetQueries();
  testing::TempDir dir;
  QtMainQueue& main = lastingQueue();
  const std::string original = "cat dog cat\ncatalog cat\n";
  auto doc = openTestDocument(dir, original, main);
  FakeEditorSurface surface;
  FindBar bar(doc, surface, main, nullptr, quickConfig());
  bar.activateReplace();
  bar.setQuery("cat");
  bar.findChild<QLineEdit*>("findReplacement")->setText("lion");
  ASSERT_TRUE(waitForSummary(bar, "4 matches"));

  // Replace changes the selected match only, then moves to the next one.
  surface.select(0, 3);
  bar.replaceCurrent();
  EXPECT_EQ(wholeText(*doc), "lion dog cat\ncatalog cat\n");
  EXPECT_EQ(bar.summaryText(), "4 matches (stale)");
  ASSERT_TRUE(waitForSummary(bar, "1 of 3"));
  EXPECT_EQ(surface.selected.begin, 9);
  ASSERT_TRUE(doc->undo());

  ASSERT_TRUE(waitForSummary(bar, "4 matches"));
  bar.replaceAll();
  ASSERT_TRUE(QTest::qWaitFor([&] { return !bar.isReplacing(); }, 10'000));
  EXPECT_EQ(wholeText(*doc), "lion dog lion\nlionalog lion\n");
  EXPECT_EQ(surface.status, "Replaced 4 matches");
  ASSERT_TRUE(waitForSummary(bar, "No matches"));
  ASSERT_TRUE(doc->undo());
  EXPECT_EQ(wholeText(*doc), original);
  EXPECT_FALSE(doc->undo());  // the replacement and the undone single replace were all there was
  ASSERT_TRUE(waitForSummary(bar, "4 matches"));

  // Highlights follow an edit until the recount.
  doc->insert(0, "xx", {}, {});
  EXPECT_EQ(bar.summaryText(), "4 matches (stale)");
  EXPECT_EQ(surface.highlightsIn({0, 12}), (std::vector<ByteRange>{{2, 5}, {10, 13}}));
  ASSERT_TRUE(waitForSummary(bar, "4 matches"));
}

// Keys reach the find field the way a user's do: the editable box holds the
// focus and hands them to its line edit past any filter there.
TEST(FindBarTest, EnterInTheRealFieldStepsAndHistoryIsNeverTypedInForTheUser) {
  forgetQueries();
  QSettings().setValue("QuorinFindQueryHistory", QStringList{"Thread starvation", "ERROR (timeout"});
  testing::TempDir dir;
  QtMainQueue& main = lastingQueue();
  auto doc = openTestDocument(dir, "Thread one\nERROR two\nThread three\n", main);
  FakeEditorSurface surface;
  FindBar bar(doc, surface, main, nullptr, quickConfig());
  bar.activate();
  auto* field = bar.findChild<QComboBox*>("findQuery");
  ASSERT_NE(field, nullptr);
  QTest::keyClicks(field, "Thread");
  EXPECT_EQ(bar.query(), "Thread");
  ASSERT_TRUE(waitForSummary(bar, "2 matches"));
  QTest::keyClick(field, Qt::Key_Return);
  EXPECT_EQ(surface.selected.begin, 0);
  EXPECT_EQ(surface.selected.end, 6);
  QTest::keyClick(field, Qt::Key_Return);
  EXPECT_EQ(surface.selected.begin, 21);
  EXPECT_TRUE(surface.status.isEmpty());
  QTest::keyClick(field, Qt::Key_Return);  // wraps, and says so for this step only
  EXPECT_EQ(surface.selected.begin, 0);
  EXPECT_EQ(surface.status, "Search wrapped to the start");
  QTest::keyClick(field, Qt::Key_Return);
  EXPECT_TRUE(surface.status.isEmpty());
  QTest::keyClick(field, Qt::Key_Return, Qt::ShiftModifier);
  EXPECT_EQ(surface.selected.begin, 0);

  // A regex typed into the field is the regex typed, and its error is said once.
  optionBox(bar, "Regular expression")->setChecked(true);
  field->lineEdit()->clear();
  QTest::keyClicks(field, "ERROR (");
  EXPECT_EQ(bar.query(), "ERROR (");
  ASSERT_TRUE(QTest::qWaitFor([&] { return bar.summaryText().startsWith("Invalid regex: "); }, 10'000));
  QTest::keyClick(field, Qt::Key_Return);
  QTest::qWait(200);
  EXPECT_TRUE(bar.noticeText().isEmpty());
}

std::shared_ptr<const search::LineProjection> showingLines(int64_t lineCount, std::vector<int64_t> shown) {
  search::LineVisibilityBitset bits(lineCount);
  for (const int64_t line : shown) bits.set(line, true);
  return std::make_shared<filter::FilterProjection>(std::move(bits), filter::FilterOptions{}, 0, 0);
}

TEST(FindBarTest, StepsPassOverMatchesOnLinesTheFilterHides) {
  forgetQueries();
  testing::TempDir dir;
  QtMainQueue& main = lastingQueue();
  auto doc = openTestDocument(dir, "hit 0\nhit 1\nhit 2\nhit 3\n", main);
  FakeEditorSurface surface;
  surface.shown = showingLines(4, {0, 2});
  FindBar bar(doc, surface, main, nullptr, quickConfig());

  // Before any count, through the find-next scan.
  bar.setQuery("hit");
  bar.findNext();
  ASSERT_TRUE(QTest::qWaitFor([&] { return surface.selected.begin == 0 && surface.selected.end == 3; }));
  bar.findNext();
  ASSERT_TRUE(QTest::qWaitFor([&] { return surface.selected.begin == 12; }));
  bar.findNext();  // over lines 1 and 3, round to the start
  ASSERT_TRUE(QTest::qWaitFor([&] { return surface.selected.begin == 0; }));

  // Through the stored matches; the count still counts every match.
  bar.activate();
  ASSERT_TRUE(waitForSummary(bar, "1 of 4"));
  bar.findNext();
  EXPECT_EQ(surface.selected.begin, 12);
  bar.findNext();
  EXPECT_EQ(surface.selected.begin, 0);
  EXPECT_EQ(surface.status, "Search wrapped to the start");
  bar.findPrevious();
  EXPECT_EQ(surface.selected.begin, 12);

  surface.shown = showingLines(4, {});
  bar.findNext();
  EXPECT_EQ(surface.selected.begin, 12);
  EXPECT_EQ(bar.noticeText(), "Every match is on a line the filter hides");
}

}  // namespace
}  // namespace quorin::app
