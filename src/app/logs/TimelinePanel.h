#pragma once

#include <QDockWidget>
#include <QPointer>
#include <cstdint>
#include <memory>

#include "logs/LogIndexData.h"

namespace quorin::app {

class DocumentTab;
class TimelineChart;

// View ▸ Timeline: a dock with the histogram of the current document's
// messages over time (TimelineChart). It follows the tab the window shows:
// its log data as it fills in, and a click on a bar moves that tab's caret
// to the time. The selected range is for a time filter to take up.
// Thread-safety: GUI thread only.
class TimelinePanel : public QDockWidget {
  Q_OBJECT

 public:
  explicit TimelinePanel(QWidget* parent = nullptr);

  // Shows `tab`'s log (none: null) until another tab is shown.
  void showTab(DocumentTab* tab);
  // A log without a tab (times shown as the index keeps them).
  void setData(std::shared_ptr<const logs::LogIndexData> data);
  TimelineChart* chart() const { return chart_; }

 signals:
  // A click on a bar: show the first line at or after this time.
  void timeRequested(qint64 micros);
  // A drag over the bars: the range [startMicros, endMicros).
  void timeRangeSelected(qint64 startMicros, qint64 endMicros);

 private:
  void showTabData();

  TimelineChart* chart_;
  QPointer<DocumentTab> tab_;
  QMetaObject::Connection tabData_;
};

}  // namespace quorin::app
