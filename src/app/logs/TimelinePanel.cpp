#include "app/logs/TimelinePanel.h"

#include "app/DocumentTab.h"
#include "app/logs/LogPicturesWiring.h"
#include "app/logs/TimelineChart.h"

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
  setData(tab ? tab->logData() : nullptr);
  if (tab) tabData_ = connect(tab, &DocumentTab::logDataChanged, this, [this] { setData(tab_->logData()); });
}

void TimelinePanel::setData(std::shared_ptr<const logs::LogIndexData> data) {
  chart_->setData(std::move(data));
}

}  // namespace quorin::app
