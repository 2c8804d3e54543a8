#include "app/filter/FilterTour.h"

#include <QDir>
#include <QFile>

#include "app/DocumentTab.h"
#include "app/MainWindow.h"
#include "app/WindowSupport.h"
#include "app/filter/FilterBar.h"
#include "app/find/FindBar.h"
#include "app/view/TextView.h"

namespace quorin::app {
namespace {

QString writeServiceLog(const QString& directory) {
  const QString path = QDir(directory).filePath(QStringLiteral("checkout.log"));
  QFile file(path);
  if (!file.open(QIODevice::WriteOnly)) return path;
  for (int i = 0; i < 5000; ++i) {
    const bool failed = i % 37 == 11;
    const bool retry = i % 37 == 12;
    const char* level = failed ? "ERROR" : retry ? "WARN " : i % 5 == 0 ? "DEBUG" : "INFO ";
    // One line a second from 10:00, times always rising (the timeline shows them evenly).
    QString line = QStringLiteral("2026-03-20 %1:%2:%3.%4 %5 [worker-%6] checkout: %7\n")
                       .arg(10 + i / 3600, 2, 10, QLatin1Char('0'))
                       .arg(i / 60 % 60, 2, 10, QLatin1Char('0'))
                       .arg(i % 60, 2, 10, QLatin1Char('0'))
                       .arg(i * 211 % 1000, 3, 10, QLatin1Char('0'))
                       .arg(QLatin1String(level))
                       .arg(i % 4)
                       .arg(failed  ? QStringLiteral("order %1 failed: payment service timed out").arg(i)
                            : retry ? QStringLiteral("retrying order %1 (attempt 2 of 3)").arg(i - 1)
                                    : QStringLiteral("order %1 placed in %2 ms").arg(i).arg(i * 17 % 300));
    if (failed) line += QStringLiteral("    at com.example.shop.PaymentClient.pay(PaymentClient.java:61)\n");
    file.write(line.toUtf8());
  }
  return path;
}

}  // namespace

void tourFilter(MainWindow* window, const QString& directory,
                const std::function<void(QWidget*, const QString&)>& shoot) {
  if (window->openFileWithMode(writeServiceLog(directory), {})) return;
  DocumentTab* tab = window->currentTab();
  pumpEvents(800);  // the log index
  FilterBar* bar = tab->filterBar();
  bar->activate();
  tab->findBar()->activate();
  tab->findBar()->setQuery(QStringLiteral("failed"));
  bar->addFindTextRule(filter::RuleAction::include);
  tab->findBar()->setQuery(QStringLiteral("retrying"));
  bar->addFindTextRule(filter::RuleAction::include);
  tab->findBar()->setQuery(QStringLiteral("worker-3"));
  bar->addFindTextRule(filter::RuleAction::exclude);
  auto options = tab->filterOptions();
  search::SearchOptions broken;
  broken.query = "order (\\d+";
  broken.regex = true;
  options.rules.push_back({.condition = filter::PatternCondition{broken}});
  options.contextAfter = 1;
  bar->apply(options);
  tab->findBar()->close();
  pumpEvents(800);
  tab->view()->setFocus();
  shoot(window, QStringLiteral("filter-bar"));
}

}  // namespace quorin::app
