#include "app/logs/TimelinePanel.h"

#include "app/logs/TimelineChart.h"

namespace quorin::app {

TimelinePanel::TimelinePanel(QWidget* parent)
    : QDockWidget(tr("Timeline"), parent), chart_(new TimelineChart(this)) {
  setObjectName(QStringLiteral("timelinePanel"));
  setAllowedAreas(Qt::TopDockWidgetArea | Qt::BottomDockWidgetArea);
  setWidget(chart_);
  connect(chart_, &TimelineChart::timeRequested, this, &TimelinePanel::timeRequested);
  connect(chart_, &TimelineChart::timeRangeSelected, this, &TimelinePanel::timeRangeSelected);
}

void TimelinePanel::setData(std::shared_ptr<const logs::LogIndexData> data) {
  chart_->setData(std::move(data));
}

}  // namespace quorin::app
