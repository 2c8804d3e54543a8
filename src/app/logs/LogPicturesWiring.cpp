#include "app/logs/LogPicturesWiring.h"

#include <QPointer>
#include <QScrollBar>
#include <algorithm>

#include "app/DocumentTab.h"
#include "app/bookmarks/MarkerScan.h"
#include "app/find/FindBar.h"
#include "app/logs/OverviewStrip.h"
#include "app/view/TextView.h"
#include "logs/Messages.h"

namespace quorin::app {

void goToLine(DocumentTab* tab, int64_t line) {
  const auto snapshot = tab->document().snapshot();
  int64_t offset = 0;
  if (const auto start = snapshot.lines.lineStart(line)) {
    offset = *start;
  } else {
    // Past the lines counted so far: the same share of the bytes, at the
    // start of its line (the strip drew it there by estimate too).
    const int64_t total = std::max<int64_t>(snapshot.lines.lineCount(), 1);
    offset = static_cast<int64_t>(static_cast<double>(snapshot.text.totalLength()) *
                                  static_cast<double>(line) / static_cast<double>(total));
  }
  // Centred first, so that the line lands mid-screen; select() then places
  // the caret (a table showing the text follows it).
  tab->view()->scrollToOffset(offset, true);
  tab->view()->select(offset, offset);
}

void goToLogTime(DocumentTab* tab, int64_t micros) {
  const auto data = tab->logData();
  if (const auto head = logs::firstHeadAtOrAfter(*data, tab->logSource(), micros))
    return goToLine(tab, head->line);
  // Every time indexed is earlier (the index is still reading): its last line.
  goToLine(tab, std::max<int64_t>(data->linesIndexed - 1, 0));
  emit tab->statusMessage(QObject::tr("No time that late indexed yet — went to the last line indexed"));
}

void connectOverviewStrip(OverviewStrip* strip, DocumentTab* tab) {
  auto refreshData = [strip, tab] {
    strip->setData(tab->logData(), tab->document().snapshot().lines.lineCount());
  };
  QObject::connect(tab, &DocumentTab::logDataChanged, strip, refreshData);
  QObject::connect(tab, &DocumentTab::stateChanged, strip, refreshData);
  refreshData();

  FindBar* find = tab->findBar();
  strip->setMatchRows([find, tab](int64_t totalLines, int rows) {
    if (find->isHidden() || find->matches().empty()) return std::vector<uint8_t>{};
    const auto snapshot = tab->document().snapshot();
    return overviewMatchRows(find->matches().ranges(), snapshot.lines, snapshot.text.totalLength(),
                             totalLines, rows);
  });
  QObject::connect(find, &FindBar::highlightsChanged, strip, &OverviewStrip::matchesChanged);
  strip->setBookmarkRows([tab](int64_t totalLines, int rows) {
    const auto& set = tab->bookmarks().set();
    if (set.empty()) return std::vector<uint8_t>{};
    return overviewLineRows(
        [&set](int64_t after) -> std::optional<int64_t> {
          const auto step = set.next(after);
          if (!step || step->wrapped) return std::nullopt;
          return step->line;
        },
        totalLines, rows);
  });
  QObject::connect(tab, &DocumentTab::bookmarksChanged, strip, &OverviewStrip::bookmarksChanged);
  auto* markers = new MarkerScan(tab, strip);
  strip->setMarkerRows([markers](int64_t totalLines, int rows) { return markers->rows(totalLines, rows); });
  QObject::connect(markers, &MarkerScan::changed, strip, &OverviewStrip::markersChanged);
  tab->view()->setLineMarkProvider([tab](int64_t first, int64_t last) {
    std::vector<TextView::LineMark> marks;
    for (const auto& mark : tab->bookmarks().set().between(first, last))
      marks.push_back({mark.line, !mark.note.empty()});
    return marks;
  });
  QObject::connect(tab, &DocumentTab::bookmarksChanged, tab->view()->viewport(),
                   qOverload<>(&QWidget::update));
  QObject::connect(tab->view(), &TextView::markAreaClicked, tab,
                   [tab](qint64 line) { tab->bookmarks().toggle(line); });

  TextView* view = tab->view();
  auto showVisible = [strip, view] {
    const auto starts = view->visibleLineStarts();
    if (starts.empty()) return;
    const auto lines = view->document().snapshot().lines;
    const int64_t first = lines.lineContaining(starts.front()).value_or(0);
    // Filtered, the screen spans more document lines than it has rows.
    const int64_t last = lines.lineContaining(starts.back()).value_or(first);
    strip->setVisibleLines(first, std::max<int64_t>(view->visibleRowCount(), last - first + 1));
  };
  QObject::connect(view->verticalScrollBar(), &QScrollBar::valueChanged, strip, showVisible);
  QObject::connect(view->verticalScrollBar(), &QScrollBar::rangeChanged, strip, showVisible);
  showVisible();
  QObject::connect(strip, &OverviewStrip::lineRequested, tab, [tab](qint64 line) { goToLine(tab, line); });
}

}  // namespace quorin::app
