#include <gtest/gtest.h>

#include <QApplication>
#include <QClipboard>
#include <QFile>
#include <QMenu>
#include <QMenuBar>
#include <QSettings>
#include <QTest>
#include <cstdio>
#include <set>

#include "app/DocumentTab.h"
#include "app/MainWindow.h"
#include "app/QtMainQueue.h"
#include "app/TabTestSupport.h"
#include "app/filter/FilterBar.h"
#include "app/filter/FilterExtract.h"
#include "app/filter/NamedFilters.h"
#include "app/find/FindBar.h"
#include "app/view/TextView.h"
#include "dispatch/ManualMainQueue.h"
#include "support/ManualExecutor.h"
#include "support/TempDir.h"

namespace quorin::app {
namespace {

// 3,000 lines "2026-03-20 12:MM:SS LEVEL message N": ERROR on every 100th, WARN on every 7th, INFO otherwise.
std::string generatedLog(int lines) {
  std::string text;
  for (int i = 0; i < lines; ++i) {
    char line[96];
    std::snprintf(line, sizeof line, "2026-03-20 %02d:%02d:%02d %s message %d\n", 12 + i / 3600, i / 60 % 60,
                  i % 60,
                  i % 100 == 0 ? "ERROR"
                  : i % 7 == 0 ? "WARN"
                               : "INFO",
                  i);
    text += line;
  }
  return text;
}

using testing::readFile;

struct Tab : TabHarness {
  explicit Tab(std::string_view text) {
    open(text, "app.log");
    tab->resize(900, 400);
    lineQueue->runAll();
    pumpUntil([&] { return tab->logData()->complete; });
  }
  // Until the status bar's text says the filter is done.
  bool settled() {
    return pumpUntil([&] { return tab->filterStatusText().endsWith(QStringLiteral("lines shown")); });
  }
  FilterBar& bar() const { return *tab->filterBar(); }
  int64_t shown() const { return tab->view()->lineProjection()->visibleLineCount(); }
};

filter::FilterRule pattern(std::string text, bool regex = false,
                           filter::RuleAction action = filter::RuleAction::include) {
  search::SearchOptions query;
  query.query = std::move(text);
  query.regex = regex;
  return {.enabled = true, .action = action, .condition = filter::PatternCondition{query}};
}

TEST(AppFilterBarTest, AnIncludeRuleFiltersTheViewAndTheSwitchKeepsItsProjection) {
  Tab t(generatedLog(3000));
  EXPECT_EQ(t.tab->filterStatusText().toStdString(), "");
  t.tab->findBar()->setQuery(QStringLiteral("ERROR"));
  t.bar().addFindTextRule(filter::RuleAction::include);
  ASSERT_TRUE(t.settled());
  EXPECT_EQ(t.shown(), 30);
  EXPECT_EQ(t.tab->filterStatusText().toStdString(), "30 of 3,001 lines shown");
  EXPECT_EQ(t.bar().ruleTexts(), QStringList{"+ ERROR (any case)"});

  // Off shows every line; on again reuses the same rows without evaluating anything.
  const auto kept = t.tab->view()->lineProjection();
  t.tab->setFilterEnabled(false);
  EXPECT_EQ(t.tab->view()->lineProjection(), nullptr);
  EXPECT_EQ(t.tab->filterStatusText().toStdString(), "");
  t.tab->setFilterEnabled(true);
  EXPECT_EQ(t.tab->view()->lineProjection(), kept);
  // So does the only rule switched off and on.
  t.bar().setRuleEnabled(0, false);
  EXPECT_EQ(t.tab->view()->lineProjection(), nullptr);
  t.bar().setRuleEnabled(0, true);
  EXPECT_EQ(t.tab->view()->lineProjection(), kept);
  EXPECT_EQ(t.tab->filterStatusText().toStdString(), "30 of 3,001 lines shown");

  // An exclude rule and one line of context; switching the include off leaves the exclude alone.
  t.bar().apply(
      {.rules = {pattern("ERROR"), pattern("WARN", false, filter::RuleAction::exclude)}, .contextBefore = 1});
  ASSERT_TRUE(t.settled());
  EXPECT_EQ(t.shown(), 30 + 29);  // line 0 has no line before it
  t.bar().setRuleEnabled(0, false);
  t.bar().setContext(0, 0);
  ASSERT_TRUE(t.settled());
  // Warnings are multiples of 7 but not of 100; the empty line after the last line break is shown too.
  EXPECT_EQ(t.shown(), 3001 - 424);

  // An edit while filtering is followed.
  ASSERT_TRUE(t.document->insert(0, "2026-03-20 11:59:59 INFO first\n", {}, {}));
  ASSERT_TRUE(
      t.pumpUntil([&] { return t.tab->filterProjection()->snapshotVersion() == t.document->version(); }));
  ASSERT_TRUE(t.settled());
  EXPECT_EQ(t.tab->filterStatusText().toStdString(), "2,578 of 3,002 lines shown");
}

TEST(AppFilterBarTest, AnInvalidRegexIsMarkedAndTheOtherRulesStillApply) {
  Tab t(generatedLog(700));
  t.bar().apply({.rules = {pattern("(unclosed", true), pattern("ERROR")}});
  ASSERT_TRUE(t.settled());
  EXPECT_TRUE(t.bar().ruleErrors()[0].startsWith("Invalid regex: ")) << t.bar().ruleErrors()[0].toStdString();
  EXPECT_EQ(t.bar().ruleErrors()[1], "");
  EXPECT_EQ(t.shown(), 7);

  // A refused window changes nothing and says why under the fields.
  t.bar().setTimeWindow(QStringLiteral("12:10"), QStringLiteral("12:05"));
  EXPECT_EQ(t.bar().noticeText().toStdString(), "The time window ends before it begins: To is before From");
  EXPECT_EQ(t.tab->filterOptions().rules.size(), 2U);
  t.bar().setTimeWindow(QStringLiteral("+5m"), QString());
  EXPECT_EQ(t.bar().noticeText().toStdString(), "From: offsets like +5m are not window edges; give a time");
  // A drag on the timeline fills both fields: 12:00:00 to 12:04:59 holds the errors of lines 0, 100 and 200.
  constexpr qint64 noon = 1'774'008'000'000'000;  // 2026-03-20 12:00 in microseconds
  t.bar().setTimeRange(noon, noon + 300'000'000);
  ASSERT_TRUE(t.settled());
  EXPECT_EQ(t.bar().noticeText().toStdString(), "");
  EXPECT_EQ(t.bar().ruleTexts()[2], "Time 2026-03-20 12:00:00 – 2026-03-20 12:04:59");
  EXPECT_EQ(t.shown(), 3);
}

TEST(AppFilterBarTest, NamedFiltersRoundTripThroughTheSettingsAndSurviveABadOne) {
  QSettings().remove(NamedFilters::kSettingsKey);
  const filter::FilterOptions errors{.rules = {pattern("ERROR")}, .contextAfter = 2, .wholeMessages = true};
  NamedFilters::save(QStringLiteral("errors"), errors);
  NamedFilters::save(QStringLiteral("no warnings"),
                     {.rules = {pattern("WARN", false, filter::RuleAction::exclude)}});
  EXPECT_EQ(NamedFilters::find(QStringLiteral("errors"))->options, errors);
  EXPECT_TRUE(NamedFilters::rename(QStringLiteral("errors"), QStringLiteral("only errors")));
  EXPECT_FALSE(NamedFilters::rename(QStringLiteral("only errors"), QStringLiteral("no warnings")));
  EXPECT_TRUE(NamedFilters::remove(QStringLiteral("no warnings")));
  const auto loaded = NamedFilters::load();
  ASSERT_EQ(loaded.size(), 1U);
  EXPECT_EQ(loaded[0], (filter::NamedFilter{"only errors", errors}));

  // A setting that does not read: said once, nothing shown, and kept aside when a new list is saved.
  QSettings().setValue(NamedFilters::kSettingsKey, QStringLiteral("{not json"));
  QString problem;
  EXPECT_TRUE(NamedFilters::load(&problem).empty());
  EXPECT_TRUE(problem.startsWith("The saved named filters could not be read (Not a Quorin filter set: "))
      << problem.toStdString();
  QString again;
  NamedFilters::load(&again);
  EXPECT_EQ(again, "");
  NamedFilters::save(QStringLiteral("errors"), errors);
  EXPECT_EQ(QSettings().value(NamedFilters::kUnreadableKey).toString(), "{not json");
  EXPECT_EQ(NamedFilters::load().size(), 1U);
  QSettings().remove(NamedFilters::kSettingsKey);
  QSettings().remove(NamedFilters::kUnreadableKey);
}

TEST(AppFilterBarTest, ExtractWritesTheShownLinesOrNothing) {
  Tab t(generatedLog(300) + "2026-03-20 13:00:00 ERROR " + std::string(5 << 20, 'x'));  // a long last line
  t.bar().apply({.rules = {pattern("ERROR")}});
  ASSERT_TRUE(t.settled());
  const auto projection = t.tab->filterProjection();
  const std::string path = (t.dir.path() / "errors.log").string();
  const auto written = extractToFile(t.tab->logSource(), *projection, QString::fromStdString(path));
  ASSERT_TRUE(written.has_value()) << written.error().toStdString();
  std::string expected =
      "2026-03-20 12:00:00 ERROR message 0\n2026-03-20 12:01:40 ERROR message 100\n"
      "2026-03-20 12:03:20 ERROR message 200\n2026-03-20 13:00:00 ERROR " +
      std::string(5 << 20, 'x') + "\n";
  EXPECT_EQ(*written, static_cast<int64_t>(expected.size()));
  EXPECT_EQ(readFile(path), expected);
  EXPECT_EQ(shownBytes(t.tab->logSource(), *projection), static_cast<int64_t>(expected.size()));

  // Into a missing folder: refused, and no file at all.
  const QString missing = QString::fromStdString((t.dir.path() / "gone" / "errors.log").string());
  EXPECT_FALSE(extractToFile(t.tab->logSource(), *projection, missing).has_value());
  EXPECT_FALSE(QFile::exists(missing));

  auto copy = shownLinesForClipboard(t.tab->logSource(), *projection, 1 << 20);
  EXPECT_EQ(copy.error().toStdString(), "Too many lines to copy (5.2 MB): save them to a file instead");

  // A new document gets the same text.
  document::OpenOptions options;
  options.mainQueue = &t.main;
  auto extracted = document::Document::untitled(options);
  extractToDocument(t.tab->logSource(), *projection, *extracted);
  EXPECT_EQ(extracted->length(), static_cast<int64_t>(expected.size()));
  EXPECT_TRUE(extracted->isModified());
}

TEST(AppFilterBarTest, TheWindowExtractsTheSettledShownLines) {
  testing::TempDir dir;
  const auto path = dir.write("app.log", generatedLog(250));
  auto window = std::make_unique<MainWindow>(lastingQueue());
  window->setAttribute(Qt::WA_DeleteOnClose, false);
  ASSERT_EQ(window->openFileWithMode(QString::fromStdString(path.string()), {}), std::nullopt);
  DocumentTab* tab = window->currentTab();
  EXPECT_EQ(window->copyShownLines()->toStdString(), "No filter is on: every line is shown");
  tab->filterBar()->apply({.rules = {pattern("ERROR")}});
  ASSERT_TRUE(QTest::qWaitFor([&] { return tab->filterStatusText().endsWith("lines shown"); }, 10'000));
  const std::string errors =
      "2026-03-20 12:00:00 ERROR message 0\n2026-03-20 12:01:40 ERROR message 100\n"
      "2026-03-20 12:03:20 ERROR message 200\n";
  EXPECT_EQ(window->copyShownLines(), std::nullopt);
  EXPECT_EQ(QApplication::clipboard()->text().toStdString(), errors);
  EXPECT_EQ(window->extractToNewDocument(), std::nullopt);
  ASSERT_EQ(window->tabCount(), 2);
  EXPECT_EQ(window->currentTab()->title(), "Untitled •");
  EXPECT_EQ(window->currentTab()->document().length(), static_cast<int64_t>(errors.size()));
  window->currentTab()->document().discardHistory();
}

TEST(AppFilterBarTest, TheFilterMenuKeysClashWithNoOtherMenuKey) {
  QtMainQueue queue;
  auto window = std::make_unique<MainWindow>(queue);
  window->setAttribute(Qt::WA_DeleteOnClose, false);
  std::set<QString> keys;
  QStringList filterItems;
  for (QAction* menuAction : window->menuBar()->actions()) {
    for (QAction* action : menuAction->menu()->actions()) {
      if (menuAction->text() == "Fi&lter") filterItems << QString(action->text()).remove('&');
      for (const QKeySequence& key : action->shortcuts())
        EXPECT_TRUE(keys.insert(key.toString()).second) << key.toString().toStdString();
    }
  }
  EXPECT_EQ(filterItems, (QStringList{"Show Filter Bar", "Include Find Text", "Exclude Find Text",
                                      "Show All Lines", "", "Extract to New Document", "Extract to File…",
                                      "Copy Shown Lines", "", "Named Filters"}));
}

}  // namespace
}  // namespace quorin::app
