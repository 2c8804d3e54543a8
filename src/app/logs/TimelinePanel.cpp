#include "app/logs/TimelinePanel.h"

#include "app/DocumentTab.h"
#include "app/logs/LogPicturesWiring.h"
#include "app/logs/TimelineChart.h"
#include "logs/Messages.h"

namespace quorin::app {

TimelinePanel::TimelinePanel(QWidget* parent)
    : QDockWidget(tr("Timeline"), parent), chart_(new TimelineChart(this)) {
  setObjectName(QStringLiteral("timelinePanel"));
  setAllowedAreas(Qt::TopDockWidgetArea | Qt::BottomDockWidgetArea);
  setWidget(chart_);
  connect(chart_, &TimelineChart::timeRequested, this, &TimelinePanel::timeRequested);
  connect(chart_, &TimelineChart::timeRangeSelected, this, &TimelinePanel::timeRangeSelected);
  connect(this, &TimelinePanel::timeRequested, this, [this](qint64 micros) {
    if (tab_) goToLogTime(tab_, micros);
  });
}

void TimelinePanel::showTab(DocumentTab* tab) {
  if (tab && tab == tab_) return;
  disconnect(tabData_);
  tab_ = tab;
  chart_->clearSelection();
  if (!tab) return chart_->setData(nullptr);
  showTabData();
  tabData_ = connect(tab, &DocumentTab::logDataChanged, this, &TimelinePanel::showTabData);
}

void TimelinePanel::showTabData() {
  auto data = tab_->logData();
  // Zoned timestamps are kept in UTC; the first one tells the offset the
  // log writes them in (one line read).
  std::optional<int32_t> zone;
  if (data->hasTimes()) {
    const auto first = logs::firstHeadAtOrAfter(*data, tab_->logSource(), INT64_MIN + 1);
    if (first && first->time.zoned) zone = first->time.offsetSeconds;
  }
  chart_->setData(std::move(data), zone);
}

void TimelinePanel::setData(std::shared_ptr<const logs::LogIndexData> data) {
  chart_->setData(std::move(data));
}

}  // namespace quorin::app
