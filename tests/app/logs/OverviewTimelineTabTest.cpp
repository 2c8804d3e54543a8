#include <gtest/gtest.h>

#include <QApplication>
#include <QMouseEvent>
#include <QTest>

#include "app/DocumentTab.h"
#include "app/MainWindow.h"
#include "app/QtMainQueue.h"
#include "app/find/FindBar.h"
#include "app/find/PanelTestSupport.h"
#include "app/logs/OverviewStrip.h"
#include "app/logs/TimelineChart.h"
#include "app/logs/TimelinePanel.h"
#include "app/view/TextView.h"
#include "support/TempDir.h"

namespace quorin::app {
namespace {

void click(QWidget& widget, QPoint at) {
  for (const auto type : {QEvent::MouseButtonPress, QEvent::MouseButtonRelease}) {
    QMouseEvent event(type, at, widget.mapToGlobal(QPointF(at)), Qt::LeftButton,
                      type == QEvent::MouseButtonPress ? Qt::LeftButton : Qt::NoButton, Qt::NoModifier);
    QApplication::sendEvent(&widget, &event);
  }
}

// A log of 1,000 lines a second apart from 12:00:00 UTC, an error every 50th.
struct LogTab {
  LogTab() {
    std::string text;
    char line[96];
    for (int i = 0; i < 1000; ++i) {
      std::snprintf(line, sizeof line, "2026-03-20T12:%02d:%02dZ %s request %d\n", i / 60, i % 60,
                    i % 50 == 7 ? "ERROR" : "INFO", i);
      text += line;
    }
    document = openTestDocument(dir, text, lastingQueue());
    tab = std::make_unique<DocumentTab>(document, lastingQueue(), jobs);
    const bool indexed = QTest::qWaitFor([&] { return tab->logData()->complete; }, 10'000);
    EXPECT_TRUE(indexed);
  }
  int64_t caretLine() const { return *document->snapshot().lines.lineContaining(tab->view()->caret()); }
  int64_t lineStart(int64_t line) const { return *document->snapshot().lines.lineStart(line); }

  testing::TempDir dir;
  jobs::JobRegistry jobs;
  std::shared_ptr<document::Document> document;
  std::unique_ptr<DocumentTab> tab;
};

TEST(OverviewStripTabTest, ClickingGoesToTheLineAndMatchesAreMarked) {
  LogTab log;
  OverviewStrip& strip = *log.tab->overviewStrip();
  strip.resize(OverviewStrip::kWidth, 100);
  ASSERT_GE(strip.totalLines(), 1000);
  click(strip, {5, 37});
  EXPECT_EQ(log.tab->view()->caret(), log.lineStart(overviewRowFirstLine(strip.totalLines(), 100, 37)));
  click(strip, {5, 99});
  EXPECT_EQ(log.caretLine(), overviewRowFirstLine(strip.totalLines(), 100, 99));

  // The find bar's matches: "request 7" is on lines 7, 70–79 and 700–799.
  auto rowOf = [&](int64_t line) { return static_cast<int>(line * strip.height() / strip.totalLines()); };
  const QRgb base = strip.palette().color(QPalette::Base).rgb();
  const QRgb highlight = strip.palette().color(QPalette::Highlight).rgb();
  EXPECT_EQ(strip.grab().toImage().pixel(2, rowOf(75)), base);
  log.tab->findBar()->activate();  // the tab's layout may size the strip anew
  log.tab->findBar()->setQuery("request 7");
  ASSERT_TRUE(QTest::qWaitFor([&] { return log.tab->findBar()->summaryText() == "111 matches"; }, 10'000));
  const QImage marked = strip.grab().toImage();
  EXPECT_EQ(marked.pixel(2, rowOf(75)), highlight);
  EXPECT_EQ(marked.pixel(2, rowOf(750)), highlight);
  EXPECT_EQ(marked.pixel(2, rowOf(500)), base);
  log.tab->findBar()->close();
  EXPECT_EQ(strip.grab().toImage().pixel(2, rowOf(75)), base);
}

TEST(TimelineTabTest, AClickOnABarGoesToItsFirstLineAndTheViewMenuTogglesThePanel) {
  LogTab log;
  TimelinePanel panel;
  panel.showTab(log.tab.get());
  TimelineChart& chart = *panel.chart();
  chart.resize(412, 160);
  ASSERT_EQ(chart.timeline().bucketMicros, 10'000'000);  // 1,000 s in at most 100 bars
  click(chart, {chart.plotRect().left() + 37 * 4 + 2, 80});
  EXPECT_EQ(log.caretLine(), 370);  // 12:06:10
  // The tab closes: the panel shows nothing.
  log.tab.reset();
  panel.showTab(nullptr);
  EXPECT_TRUE(chart.timeline().buckets.empty());

  MainWindow* window = new MainWindow(lastingQueue());
  QAction* toggle = actionNamed(*window, "Timeline");
  ASSERT_NE(toggle, nullptr);
  EXPECT_TRUE(window->timeline()->isHidden());
  toggle->trigger();
  EXPECT_FALSE(window->timeline()->isHidden());
  window->close();
}

}  // namespace
}  // namespace quorin::app
