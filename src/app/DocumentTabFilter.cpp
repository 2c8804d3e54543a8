// The document tab's line filter: the live filter kept current through
// edits, appends and the log index, its projection handed to the view, and
// the master switch that keeps the last projection for an instant return.
#include <QLocale>
#include <QPointer>
#include <QVBoxLayout>
#include <algorithm>

#include "app/DocumentTab.h"
#include "app/filter/FilterBar.h"
#include "app/filter/FilterTexts.h"
#include "app/view/TextView.h"
#include "dispatch/SerialQueue.h"

namespace quorin::app {
namespace {

// Runs tasks on the main queue: where the live filter publishes.
class FilterNotifyExecutor final : public dispatch::Executor {
 public:
  explicit FilterNotifyExecutor(dispatch::MainQueue& queue) : queue_(queue) {}
  void async(dispatch::Task task) override { queue_.post(std::move(task)); }

 private:
  dispatch::MainQueue& queue_;
};

// Levels, times and whole messages read the log index: a filter started
// before it was complete is started again when it is.
bool readsMessages(const filter::FilterOptions& options) {
  if (options.wholeMessages) return true;
  return std::ranges::any_of(options.rules, [](const filter::FilterRule& rule) {
    return rule.enabled && (std::holds_alternative<filter::LevelCondition>(rule.condition) ||
                            std::holds_alternative<filter::TimeWindowCondition>(rule.condition));
  });
}

bool readsBookmarks(const filter::FilterOptions& options) {
  return std::ranges::any_of(options.rules, [](const filter::FilterRule& rule) {
    return rule.enabled && std::holds_alternative<filter::BookmarkedCondition>(rule.condition);
  });
}

}  // namespace

void DocumentTab::createFilter() {
  filterBar_ = new FilterBar(*this, this);
  layout_->addWidget(filterBar_);
  filterBar_->hide();  // Filter ▸ Show Filter Bar
  filterQueue_ = std::make_shared<dispatch::SerialQueue>("quorin.filter");
  liveFilter_ = filter::LiveFilter::create(
      filterQueue_, std::make_shared<FilterNotifyExecutor>(mainQueue_),
      [self = QPointer(this)](std::shared_ptr<const filter::FilterProjection> projection,
                              const filter::FilterStatus&) {
        if (self) self->filterPublished(std::move(projection));
      });
  connect(this, &DocumentTab::logDataChanged, this, &DocumentTab::filterLogDataChanged);
}

bool DocumentTab::isFiltering() const { return filterOn_ && filterOptions_.hasEnabledRule(); }

std::shared_ptr<const filter::FilterProjection> DocumentTab::filterProjection() const {
  return liveFilter_ ? liveFilter_->projection() : nullptr;
}

std::expected<std::vector<std::string>, QString> DocumentTab::setFilterOptions(
    const filter::FilterOptions& options) {
  if (options == filterOptions_ && (filterStarted_ || !isFiltering())) return filterErrors_;
  // Compiled first, so that a refusal leaves the running filter alone.
  auto compiled = filter::compileFilter(options);
  if (!compiled) return std::unexpected(QString::fromStdString(compiled.error().describe()));
  filterOptions_ = options;
  filterErrors_ = compiled->ruleErrors;
  if (isFiltering()) {
    // Back to options the kept projection was computed with (a rule switched off and on again): no
    // evaluation.
    if (!showKeptProjection()) startFilter();
  } else {
    filterStarted_ = false;
    liveFilter_->cancel();
    view_->setLineProjection(nullptr);
  }
  emit filterChanged();
  return filterErrors_;
}

void DocumentTab::setFilterEnabled(bool on) {
  if (on == filterOn_) return;
  filterOn_ = on;
  if (!isFiltering()) {
    // Switched off: every line again, at the caret's line (the view keeps it). The
    // projection stays with the live filter; a computation under way is not needed now.
    if (liveFilter_->status().computing) {
      liveFilter_->cancel();
      filterStarted_ = false;
    }
    view_->setLineProjection(nullptr);
  } else if (!showKeptProjection()) {
    startFilter();
  }
  emit filterChanged();
}

bool DocumentTab::showKeptProjection() {
  const auto kept = liveFilter_->projection();
  // The same options over the same text and rules: the kept rows, with no evaluation.
  if (!kept || !kept->isComplete() || kept->options() != filterOptions_ ||
      kept->snapshotVersion() != doc_->version() ||
      kept->rulesGeneration() != static_cast<int64_t>(rules_.generation()) ||
      liveFilter_->status().computing ||
      (readsBookmarks(filterOptions_) && filterBookmarksSeen_ != bookmarksGeneration_))
    return false;
  filterStarted_ = true;
  view_->setLineProjection(kept);
  return true;
}

void DocumentTab::startFilter() {
  const logs::LogSource source = logSource();
  filter::FilterContext context;
  context.logData = logData_;
  context.rules = rules_;
  context.snapshotVersion = doc_->version();
  filterBookmarksSeen_ = bookmarksGeneration_;
  if (readsBookmarks(filterOptions_))
    context.bookmarkedLines = std::make_shared<const std::vector<int64_t>>(bookmarks_->set().lines());
  filterTrailsLines_ = !source.lines.isComplete;
  filterHasWholeLog_ = logData_ && logData_->complete;
  if (auto started = liveFilter_->start(filterOptions_, source, std::move(context))) {
    filterErrors_ = std::move(*started);
    filterStarted_ = true;
  }
}

void DocumentTab::filterFollow(const document::DocumentChange& change) {
  if (!filterStarted_) return;
  if (!isFiltering()) {
    // Not needed while off: the kept projection is now out of date and is computed again when switched on.
    liveFilter_->cancel();
    filterStarted_ = false;
    return;
  }
  using Kind = document::DocumentChange::Kind;
  const logs::LogSource source = logSource();
  if (change.kind == Kind::reload || change.lineIndexRestarted) {
    startFilter();
  } else if (change.kind == Kind::append) {
    liveFilter_->noteAppend(source, doc_->version());
  } else {
    liveFilter_->noteEdit(change.edit, source, doc_->version());
  }
  emit filterChanged();
}

void DocumentTab::filterLinesCounted(bool complete) {
  if (!filterTrailsLines_ || !filterStarted_ || !isFiltering()) return;
  // The lines the line index has just counted are new to the filter.
  filterTrailsLines_ = !complete;
  liveFilter_->noteAppend(logSource(), doc_->version());
  emit filterChanged();
}

void DocumentTab::filterLogDataChanged() {
  if (filterHasWholeLog_ || !logData_->complete || !filterStarted_ || !isFiltering()) return;
  if (readsMessages(filterOptions_)) {
    startFilter();
    emit filterChanged();
  }
}

void DocumentTab::filterBookmarksChanged() {
  // The rule's lines are handed in when the filter starts: other lines, another start.
  if (!filterStarted_ || !isFiltering() || !readsBookmarks(filterOptions_)) return;
  startFilter();
  emit filterChanged();
}

void DocumentTab::filterPublished(std::shared_ptr<const filter::FilterProjection> projection) {
  if (isFiltering() && filterStarted_) view_->setLineProjection(std::move(projection));
  emit filterChanged();
}

QString DocumentTab::filterStatusText() const {
  if (!isFiltering()) return {};
  const auto projection = filterProjection();
  const auto status = liveFilter_->status();
  const int64_t total = std::max<int64_t>(1, progress_.lineCount);
  if (!projection || (status.computing && !projection->isComplete())) {
    const int64_t evaluated = std::max(projection ? projection->linesEvaluated() : 0, status.linesDone);
    return FilterTexts::progress(evaluated, std::max<int64_t>(status.totalLines, 1));
  }
  if (status.computing || projection->snapshotVersion() != doc_->version()) return FilterTexts::updating();
  return FilterTexts::shown(projection->visibleLineCount(), total);
}

QString DocumentTab::filterNotice() const {
  if (!isFiltering()) return {};
  return QString::fromStdString(liveFilter_->status().notice);
}

}  // namespace quorin::app
