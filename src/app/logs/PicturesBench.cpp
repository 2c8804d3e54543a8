#include "app/logs/PicturesBench.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QMouseEvent>
#include <algorithm>
#include <string>
#include <vector>

#include "app/DocumentTab.h"
#include "app/MainWindow.h"
#include "app/WindowSupport.h"
#include "app/find/FindBar.h"
#include "app/logs/OverviewStrip.h"
#include "app/logs/TimelineChart.h"
#include "app/logs/TimelinePanel.h"
#include "app/view/TextView.h"

namespace quorin::app {
namespace {

constexpr int kFrames = 200;

// The change and the paint it causes, timed together, in milliseconds.
template <typename Change>
double frame(QWidget* widget, Change change) {
  QElapsedTimer timer;
  timer.start();
  change();
  widget->repaint();
  return static_cast<double>(timer.nsecsElapsed()) / 1e6;
}

void report(const std::function<void(const char*, double, const char*)>& figure, const std::string& name,
            std::vector<double> ms) {
  std::sort(ms.begin(), ms.end());
  figure((name + "_median").c_str(), ms[ms.size() / 2], "ms");
  figure((name + "_p99").c_str(), ms[std::min(ms.size() - 1, ms.size() * 99 / 100)], "ms");
}

void sendMouse(QWidget* widget, QEvent::Type type, QPointF at, Qt::MouseButtons buttons) {
  QMouseEvent event(type, at, widget->mapToGlobal(at),
                    type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton, buttons, Qt::NoModifier);
  QApplication::sendEvent(widget, &event);
}

// Six hours of a checkout service: mostly info, some debug, warnings now
// and then, and a twenty-minute incident four hours in whose errors carry
// stack traces.
QString writeServiceLog(const QString& directory) {
  const QString path = QDir(directory).filePath(QStringLiteral("checkout-service.log"));
  QFile file(path);
  if (!file.open(QIODevice::WriteOnly)) return path;
  uint32_t random = 12345;
  auto next = [&random] { return random = random * 1664525u + 1013904223u; };
  const int64_t start = 8 * 3600 * 1000LL;  // 08:00:00.000
  int64_t ms = 0;
  QByteArray out;
  for (int i = 0; ms < 6 * 3600 * 1000LL; ++i) {
    const bool incident = ms > 4 * 3600 * 1000LL && ms < 4 * 3600 * 1000LL + 20 * 60 * 1000LL;
    // Busier in the late morning and during the incident's retries.
    ms += 40 + next() % (incident ? 60 : (ms > 2 * 3600 * 1000LL && ms < 3 * 3600 * 1000LL ? 120 : 260));
    const int64_t t = start + ms;
    const uint32_t roll = next() % 1000;
    const char* level = incident ? (roll < 260   ? "ERROR"
                                    : roll < 420 ? "WARN"
                                                 : "INFO")
                                 : (roll < 4     ? "ERROR"
                                    : roll < 30  ? "WARN"
                                    : roll < 200 ? "DEBUG"
                                                 : "INFO");
    const QString stamp = QStringLiteral("2026-03-20 %1:%2:%3,%4")
                              .arg(t / 3600000, 2, 10, QLatin1Char('0'))
                              .arg(t / 60000 % 60, 2, 10, QLatin1Char('0'))
                              .arg(t / 1000 % 60, 2, 10, QLatin1Char('0'))
                              .arg(t % 1000, 3, 10, QLatin1Char('0'));
    QString message;
    if (qstrcmp(level, "ERROR") == 0) {
      message = incident ? QStringLiteral("payment gateway timeout after 3000 ms (order %1)").arg(100000 + i)
                         : QStringLiteral("inventory lookup failed for sku-%1").arg(next() % 9000);
    } else if (qstrcmp(level, "WARN") == 0) {
      message = incident ? QStringLiteral("retrying payment for order %1 (attempt %2)")
                               .arg(100000 + i)
                               .arg(next() % 3 + 2)
                         : QStringLiteral("slow query on carts: %1 ms").arg(500 + next() % 900);
    } else if (qstrcmp(level, "DEBUG") == 0) {
      message = QStringLiteral("cache hit ratio %1%").arg(80 + next() % 20);
    } else {
      message = QStringLiteral("order %1 checked out in %2 ms").arg(100000 + i).arg(20 + next() % 180);
    }
    out += QStringLiteral("%1 %2 [worker-%3] %4\n")
               .arg(stamp, QLatin1String(level))
               .arg(next() % 8)
               .arg(message)
               .toUtf8();
    if (incident && qstrcmp(level, "ERROR") == 0 && roll % 3 == 0) {
      out +=
          "java.net.SocketTimeoutException: Read timed out\n"
          "\tat com.shop.pay.GatewayClient.charge(GatewayClient.java:212)\n"
          "\tat com.shop.checkout.CheckoutService.pay(CheckoutService.java:87)\n";
    }
    if (out.size() > (1 << 20)) {
      file.write(out);
      out.clear();
    }
  }
  file.write(out);
  return path;
}

}  // namespace

void tourLogPictures(MainWindow* window, const QString& directory,
                     const std::function<void(QWidget*, const QString&)>& shoot) {
  if (window->openFileWithMode(writeServiceLog(directory), {})) return;
  DocumentTab* tab = window->currentTab();
  window->timeline()->show();
  QElapsedTimer waiting;
  waiting.start();
  while (!tab->logData()->complete && waiting.elapsed() < 60'000) pumpEvents(50);
  tab->findBar()->activate();
  tab->findBar()->setQuery(QStringLiteral("slow query"));
  pumpEvents(1500);
  tab->findBar()->findNext();
  pumpEvents(300);
  // Into the incident, then a drag over its bars.
  TimelineChart* chart = window->timeline()->chart();
  const QRect plot = chart->plotRect();
  const double y = plot.center().y();
  sendMouse(chart, QEvent::MouseButtonPress, QPointF(plot.left() + plot.width() * 0.67, y), Qt::LeftButton);
  sendMouse(chart, QEvent::MouseButtonRelease, QPointF(plot.left() + plot.width() * 0.67, y), Qt::NoButton);
  sendMouse(chart, QEvent::MouseButtonPress, QPointF(plot.left() + plot.width() * 0.655, y), Qt::LeftButton);
  sendMouse(chart, QEvent::MouseMove, QPointF(plot.left() + plot.width() * 0.73, y), Qt::LeftButton);
  sendMouse(chart, QEvent::MouseButtonRelease, QPointF(plot.left() + plot.width() * 0.73, y), Qt::NoButton);
  pumpEvents(300);
  shoot(window, QStringLiteral("log-pictures"));

  const QPalette light = QApplication::palette();
  QPalette dark;
  dark.setColor(QPalette::Window, QColor(0x2b, 0x2d, 0x31));
  dark.setColor(QPalette::WindowText, QColor(0xdc, 0xdc, 0xdc));
  dark.setColor(QPalette::Base, QColor(0x1e, 0x1f, 0x22));
  dark.setColor(QPalette::AlternateBase, QColor(0x26, 0x28, 0x2b));
  dark.setColor(QPalette::Text, QColor(0xdc, 0xdc, 0xdc));
  dark.setColor(QPalette::Button, QColor(0x35, 0x37, 0x3b));
  dark.setColor(QPalette::ButtonText, QColor(0xdc, 0xdc, 0xdc));
  dark.setColor(QPalette::Highlight, QColor(0x2f, 0x65, 0xca));
  dark.setColor(QPalette::HighlightedText, Qt::white);
  dark.setColor(QPalette::Mid, QColor(0x4a, 0x4c, 0x50));
  QApplication::setPalette(dark);
  pumpEvents(300);
  shoot(window, QStringLiteral("log-pictures-dark"));
  QApplication::setPalette(light);
  tab->findBar()->close();
  pumpEvents(100);
}

void benchPictures(MainWindow* window, const std::function<void(const char*, double, const char*)>& figure) {
  DocumentTab* tab = window->currentTab();
  QElapsedTimer waiting;
  waiting.start();
  while (!tab->logData()->complete && waiting.elapsed() < 300'000) pumpEvents(50);
  figure("log_index_complete", static_cast<double>(waiting.elapsed()), "ms");
  figure("log_blocks", static_cast<double>(tab->logData()->blocks.size()), "count");
  window->timeline()->show();
  pumpEvents(200);

  // A search with matches all through the file, so that the strip marks them too.
  tab->findBar()->activate();
  tab->findBar()->setQuery(QStringLiteral("Slow query"));
  pumpEvents(500);  // the count starts after a typing pause
  waiting.restart();
  while (tab->findBar()->isCounting() && waiting.elapsed() < 120'000) pumpEvents(100);
  figure("overview_matches", static_cast<double>(tab->findBar()->matches().size()), "count");

  OverviewStrip* strip = tab->overviewStrip();
  std::vector<double> full, cached;
  for (int i = 0; i < kFrames; ++i) {
    // New matches: the rows are computed again from the index, the line index and the matches.
    full.push_back(frame(strip, [&] { strip->matchesChanged(); }));
    cached.push_back(frame(strip, [&] { strip->setVisibleLines(i * 1000, 50); }));
  }
  report(figure, "overview_redraw_full", full);
  report(figure, "overview_redraw_cached", cached);

  // New data (a copy, as a publication during a build or after an edit makes
  // it): the buckets are computed again from the blocks.
  TimelineChart* chart = window->timeline()->chart();
  const auto data = tab->logData();
  const auto copy = std::make_shared<const logs::LogIndexData>(*data);
  full.clear();
  cached.clear();
  for (int i = 0; i < kFrames; ++i) {
    full.push_back(frame(chart, [&] { chart->setData(i % 2 ? data : copy); }));
    cached.push_back(frame(chart, [&] {
      const QPointF at(chart->plotRect().left() + (i * 7) % std::max(1, chart->plotRect().width()),
                       chart->plotRect().center().y());
      QMouseEvent move(QEvent::MouseMove, at, chart->mapToGlobal(at), Qt::NoButton, Qt::NoButton,
                       Qt::NoModifier);
      QApplication::sendEvent(chart, &move);
    }));
  }
  report(figure, "timeline_redraw_full", full);
  report(figure, "timeline_redraw_cached", cached);
  figure("timeline_buckets", static_cast<double>(chart->timeline().buckets.size()), "count");
  figure("overview_rows", strip->height(), "count");
}

}  // namespace quorin::app
