#include "app/bookmarks/MarkerScan.h"

#include <QPointer>
#include <algorithm>

#include "app/DocumentTab.h"
#include "app/bookmarks/MarkerColors.h"
#include "app/logs/OverviewStrip.h"
#include "search/SearchEngine.h"

namespace quorin::app {

MarkerScan::MarkerScan(DocumentTab* tab, QObject* parent)
    : QObject(parent), tab_(tab), doc_(tab->sharedDocument()) {
  setObjectName(QStringLiteral("markerScan"));
  restart_.setSingleShot(true);
  restart_.setInterval(1000);
  connect(&restart_, &QTimer::timeout, this, &MarkerScan::start);
  listener_ = doc_->addChangeListener([this](const document::DocumentChange&) {
    if (!rules_.empty()) restart_.start();
  });
}

MarkerScan::~MarkerScan() {
  cancel();
  doc_->removeChangeListener(listener_);
}

MarkerScan* MarkerScan::of(const DocumentTab& tab) {
  return tab.overviewStrip() ? tab.overviewStrip()->findChild<MarkerScan*>(QStringLiteral("markerScan"))
                             : nullptr;
}

void MarkerScan::cancel() {
  for (const auto& handle : running_) handle.cancel();
  running_.clear();
}

void MarkerScan::setRules(std::vector<bookmarks::MarkerRule> rules) {
  std::erase_if(rules, [](const bookmarks::MarkerRule& r) { return !r.enabled || r.pattern.empty(); });
  if (rules == rules_) return;
  rules_ = std::move(rules);
  found_.clear();
  emit changed();
  start();
}

void MarkerScan::start() {
  cancel();
  const uint64_t generation = ++generation_;
  if (rules_.empty()) return;
  static const search::SearchEngine engine;
  const auto snapshot = doc_->snapshot();
  auto results = std::make_shared<std::vector<Found>>(rules_.size());
  auto left = std::make_shared<size_t>(rules_.size());
  QPointer<MarkerScan> self(this);
  for (size_t i = 0; i < rules_.size(); ++i) {
    const auto& rule = rules_[i];
    (*results)[i].colour = rule.colour;
    const search::SearchOptions options{.query = rule.pattern,
                                        .caseSensitive = rule.caseSensitive,
                                        .wholeWord = rule.wholeWord,
                                        .regex = rule.regex};
    running_.push_back(engine.start(
        kMostMatches, options, snapshot.text, snapshot.lines,
        [self, generation, results, left, i](search::SearchResult result) {
          if (!self || generation != self->generation_) return;
          auto& lines = (*results)[i].lines;
          if (!result.cancelled && !result.compileError) {
            for (const auto& match : result.matches) {
              if (lines.empty() || lines.back() != match.line) lines.push_back(match.line);
            }
          }
          if (--*left == 0) {
            self->running_.clear();
            self->found_ = std::move(*results);
            emit self->changed();
          }
        },
        &tab_->mainQueue()));
  }
}

std::vector<QRgb> MarkerScan::rows(int64_t totalLines, int rows) const {
  std::vector<QRgb> out;
  if (found_.empty() || totalLines <= 0 || rows <= 0) return out;
  out.assign(static_cast<size_t>(rows), 0);
  const QPalette palette;
  // Later rules first, so that the first rule's colour wins a shared row, as in the text.
  for (auto it = found_.rbegin(); it != found_.rend(); ++it) {
    const QRgb colour = markerTint(it->colour, palette).rgb();
    const auto& lines = it->lines;
    const auto marked = overviewLineRows(
        [&lines](int64_t after) -> std::optional<int64_t> {
          const auto next = std::upper_bound(lines.begin(), lines.end(), after);
          return next == lines.end() ? std::nullopt : std::optional(*next);
        },
        totalLines, rows);
    for (size_t r = 0; r < marked.size() && r < out.size(); ++r) {
      if (marked[r]) out[r] = colour;
    }
  }
  return out;
}

}  // namespace quorin::app
