#pragma once

#include <QDockWidget>
#include <cstdint>
#include <memory>

#include "logs/LogIndexData.h"

namespace quorin::app {

class TimelineChart;

// View ▸ Timeline: a dock with the histogram of the current document's
// messages over time (TimelineChart). The window gives it the current tab's
// log data and turns its requests into jumps; the selected range is for a
// time filter to take up.
// Thread-safety: GUI thread only.
class TimelinePanel : public QDockWidget {
  Q_OBJECT

 public:
  explicit TimelinePanel(QWidget* parent = nullptr);

  void setData(std::shared_ptr<const logs::LogIndexData> data);
  TimelineChart* chart() const { return chart_; }

 signals:
  // A click on a bar: show the first line at or after this time.
  void timeRequested(qint64 micros);
  // A drag over the bars: the range [startMicros, endMicros).
  void timeRangeSelected(qint64 startMicros, qint64 endMicros);

 private:
  TimelineChart* chart_;
};

}  // namespace quorin::app
