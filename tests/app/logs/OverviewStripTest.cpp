#include <gtest/gtest.h>

#include <QApplication>
#include <QMouseEvent>
#include <QSignalSpy>

#include "app/find/PanelTestSupport.h"
#include "app/logs/OverviewStrip.h"
#include "dispatch/ManualMainQueue.h"
#include "support/ManualExecutor.h"

namespace quorin::app {
namespace {

using logs::Level;

void mouse(QWidget& widget, QEvent::Type type, int y, Qt::MouseButtons buttons) {
  const QPointF at(5, y);
  QMouseEvent event(type, at, widget.mapToGlobal(at),
                    type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton, buttons, Qt::NoModifier);
  QApplication::sendEvent(&widget, &event);
}

std::vector<qint64> requested(const QSignalSpy& spy) {
  std::vector<qint64> lines;
  for (const auto& call : spy) lines.push_back(call.at(0).toLongLong());
  return lines;
}

// 1,000 lines in blocks of 100, the first 500 indexed; errors at lines
// 120–129, a warning at 300.
std::shared_ptr<logs::LogIndexData> halfIndexed() {
  auto data = std::make_shared<logs::LogIndexData>();
  for (int64_t first = 0; first < 500; first += 100) {
    logs::LogBlock block;
    block.firstLine = first;
    block.lineCount = 100;
    block.messages[logs::levelSlot(Level::info)] = 100;
    data->blocks.push_back(block);
  }
  for (uint32_t line = 120; line < 130; ++line) data->alertLines[1].push_back(line);
  data->alertLines[0].push_back(300);
  data->linesIndexed = 500;
  return data;
}

TEST(OverviewStripTest, ClickAndDragAskForTheLineUnderTheMouse) {
  OverviewStrip strip;
  strip.resize(OverviewStrip::kWidth, 100);
  strip.setData(halfIndexed(), 1000);
  QSignalSpy spy(&strip, &OverviewStrip::lineRequested);

  mouse(strip, QEvent::MouseButtonPress, 50, Qt::LeftButton);
  mouse(strip, QEvent::MouseMove, 50, Qt::LeftButton);  // same row: asked once
  mouse(strip, QEvent::MouseMove, 12, Qt::LeftButton);
  mouse(strip, QEvent::MouseMove, 500, Qt::LeftButton);  // below the strip: the last row
  mouse(strip, QEvent::MouseButtonRelease, 500, Qt::NoButton);
  mouse(strip, QEvent::MouseMove, 30, Qt::NoButton);  // hovering asks nothing
  EXPECT_EQ(requested(spy), (std::vector<qint64>{500, 120, 990}));

  // Fewer lines than rows: a row shows the line it falls on.
  strip.setData(halfIndexed(), 10);
  spy.clear();
  mouse(strip, QEvent::MouseButtonPress, 99, Qt::LeftButton);
  mouse(strip, QEvent::MouseButtonPress, 25, Qt::LeftButton);
  EXPECT_EQ(requested(spy), (std::vector<qint64>{9, 2}));
}

TEST(OverviewStripTest, DrawsAlertsMatchesAndThePartNotIndexedYet) {
  OverviewStrip strip;
  strip.resize(OverviewStrip::kWidth, 100);
  strip.setData(halfIndexed(), 1000);
  strip.setMatchRows([](int64_t, int rows) {
    std::vector<uint8_t> marks(static_cast<size_t>(rows));
    marks[70] = 1;
    return marks;
  });
  const QImage image = strip.grab().toImage();
  const QRgb base = strip.palette().color(QPalette::Base).rgb();
  auto redder = [](QRgb c) { return qRed(c) - qBlue(c); };

  const QRgb error = image.pixel(OverviewStrip::kWidth - 2, 12);
  EXPECT_GT(redder(error), redder(base) + 40) << "row 12 holds lines 120–129, all errors";
  EXPECT_EQ(image.pixel(OverviewStrip::kWidth - 2, 40), base) << "no error in lines 400–409";
  EXPECT_NE(image.pixel(9, 30), base) << "the warning at line 300";
  EXPECT_EQ(image.pixel(2, 70), strip.palette().color(QPalette::Highlight).rgb());
  EXPECT_EQ(image.pixel(2, 71), base);
  int hatched = 0;
  for (int x = 1; x < OverviewStrip::kWidth; ++x) hatched += image.pixel(x, 80) != base;
  EXPECT_GT(hatched, 0) << "lines 800–809 are not indexed yet";
}

TEST(OverviewStripTest, MatchRowsFollowTheLineIndex) {
  testing::TempDir dir;
  dispatch::ManualMainQueue main;
  std::string text;
  for (int i = 0; i < 100; ++i) text += "line " + std::to_string(i) + "\n";
  auto indexQueue = std::make_shared<testing::ManualExecutor>();
  const auto doc = openTestDocument(dir, text, main, indexQueue);
  indexQueue->runAll();
  main.runPending();
  const auto lines = doc->snapshot().lines;
  ASSERT_TRUE(lines.isComplete);
  auto at = [&](int64_t line, int64_t column) {
    const int64_t start = *lines.lineStart(line) + column;
    return storage::ByteRange{start, start + 1};
  };
  const std::vector<storage::ByteRange> matches = {at(10, 0), at(10, 3), at(57, 2), at(99, 5)};
  auto marked = [](const std::vector<uint8_t>& marks) {
    std::vector<int> rows;
    for (size_t i = 0; i < marks.size(); ++i)
      if (marks[i]) rows.push_back(static_cast<int>(i));
    return rows;
  };
  EXPECT_EQ(marked(overviewMatchRows(matches, lines, doc->length(), 100, 10)), (std::vector<int>{1, 5, 9}));
  // Two rows a line: both rows of a line with a match.
  EXPECT_EQ(marked(overviewMatchRows(matches, lines, doc->length(), 100, 200)),
            (std::vector<int>{20, 21, 114, 115, 198, 199}));
  EXPECT_EQ(marked(overviewMatchRows({}, lines, doc->length(), 100, 10)), std::vector<int>{});
}

}  // namespace
}  // namespace quorin::app
