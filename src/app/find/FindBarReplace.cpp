// Replace and Replace All.
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

#include "app/find/FindBar.h"
#include "app/find/FindSummary.h"
#include "replace/ReplacePlanner.h"

namespace quorin::app {
namespace {

storage::ByteRange ordered(EditorSurface::Selection s) {
  return {std::min(s.begin, s.end), std::max(s.begin, s.end)};
}

}  // namespace

std::expected<replace::PreparedReplacement, replace::ReplaceError> FindBar::preparedReplacement() const {
  return replace::prepareReplacement(options(), replacementEdit_->text().toStdString());
}

void FindBar::updateReplacePreview() {
  if (replaceRow_->isHidden()) return;
  const auto prepared = preparedReplacement();
  if (!prepared) {
    replacementEdit_->setToolTip(QString::fromStdString(prepared.error().describe()));
    return;
  }
  // The match Replace would take: the selection when it is a match, else the next one after it.
  const storage::ByteRange selected = ordered(surface_.selection());
  std::optional<storage::ByteRange> target;
  if (matches_.version() == document_->version()) {
    target = matches_.indexOf(selected) ? std::optional(selected) : matches_.next(selected.start, true);
  }
  if (!target) {
    replacementEdit_->setToolTip(prepared->replacement.isConstant() ? QString()
                                                                    : replacePreviewUnknownNote());
    return;
  }
  const std::string next = replace::replacementAt(*prepared, document_->snapshot().text, *target);
  replacementEdit_->setToolTip(replacePreviewNote(QString::fromStdString(next)));
}

void FindBar::replaceCurrent() {
  const search::SearchOptions opts = options();
  if (opts.query.empty() || isReplacing()) return;
  rememberQuery();
  const storage::ByteRange selected = ordered(surface_.selection());
  // Replace only what is a match of the query; otherwise the first press
  // just moves to the next match, as in most editors.
  bool isMatch = false;
  if (matches_.version() == document_->version() && matches_.isComplete()) {
    isMatch = matches_.indexOf(selected).has_value();
  } else {
    search::FindNextLimits here = config_.findNextLimits;
    here.scanBytes = 1;  // only a match that starts where the selection does
    const search::SearchCancellation never;
    const auto found =
        search::FindNext(here).find({opts, selected.start, false, false}, document_->snapshot().text, never);
    isMatch = found.match == selected;
  }
  if (!isMatch) {
    findNext();
    return;
  }
  const auto prepared = preparedReplacement();
  if (!prepared) {
    setNotice(QString::fromStdString(prepared.error().describe()));
    return;
  }
  const std::string bytes = replace::replacementAt(*prepared, document_->snapshot().text, selected);
  const int64_t caret = selected.start + static_cast<int64_t>(bytes.size());
  const auto outcome = document_->replace(selected, bytes, {selected.start, selected.end},
                                          persistence::TextSelection::at(caret));
  if (!outcome) {
    setNotice(QString::fromStdString(outcome.error().describe()));
    return;
  }
  surface_.select(caret, caret);
  findNext();
}

void FindBar::replaceAll() {
  const search::SearchOptions opts = options();
  if (opts.query.empty() || isReplacing()) return;
  rememberQuery();
  setNotice({});
  // A template the pattern cannot fill is refused before anything is counted.
  if (const auto prepared = preparedReplacement(); !prepared) {
    setNotice(QString::fromStdString(prepared.error().describe()));
    return;
  }
  if (matches_.version() == document_->version() && matches_.isComplete()) {
    search::SearchResult result;
    result.snapshotVersion = matches_.version();
    for (const storage::ByteRange& r : matches_.ranges())
      result.matches.push_back({0, 0, r.start, r.length()});
    result.totalMatchCount = static_cast<int64_t>(result.matches.size());
    finishReplaceAll(std::move(result));
    return;
  }
  // Count afresh (the stored matches are stale, partial or still coming),
  // with progress and a way out; the edit itself is one quick bulk step.
  setReplacing(true);
  replaceProgress_->setText(countingSummary({}));
  const uint64_t generation = ++replaceGeneration_;
  const document::DocumentSnapshot snapshot = document_->snapshot();
  std::weak_ptr<FindBar*> alive = alive_;
  search::SearchHooks hooks;
  hooks.onProgress = [alive, generation](const search::SearchProgress& progress) {
    const auto bar = alive.lock();
    if (bar && (*bar)->replaceGeneration_ == generation && (*bar)->isReplacing())
      (*bar)->replaceProgress_->setText(countingSummary(progress));
  };
  replaceAllHandle_ = engine_.start(
      config_.matchCap, opts, snapshot.text, snapshot.lines,
      [alive, generation](search::SearchResult result) {
        const auto bar = alive.lock();
        if (!bar || (*bar)->replaceGeneration_ != generation) return;
        (*bar)->finishReplaceAll(std::move(result));
      },
      &mainQueue_, std::move(hooks));
}

void FindBar::cancelReplaceAll() {
  if (!isReplacing()) return;
  ++replaceGeneration_;
  replaceAllHandle_.cancel();
  setReplacing(false);
  setNotice(replaceAllCancelledNote());
}

void FindBar::setReplacing(bool replacing) {
  if (!replacing) {
    replaceAllHandle_ = {};
    replaceProgress_->clear();
  }
  cancelButton_->setVisible(replacing);
  replaceAllButton_->setEnabled(!replacing);
}

void FindBar::finishReplaceAll(search::SearchResult result) {
  setReplacing(false);
  if (result.cancelled) return;
  const auto stored = static_cast<int64_t>(result.matches.size());
  if (result.compileError || result.timedOut || result.truncated) {
    QString why = resultSummary(result, stored, config_.matchCap);
    if (!result.compileError) why += nothingReplacedSuffix();
    setNotice(why);
    return;
  }
  if (result.snapshotVersion != document_->version()) {
    setNotice(textChangedDuringCountNote());
    return;
  }
  if (result.matches.empty()) {
    setNotice(resultSummary({}, 0, 0));
    return;
  }
  const auto prepared = preparedReplacement();
  if (!prepared) {
    setNotice(QString::fromStdString(prepared.error().describe()));
    return;
  }
  // Templates expand per match; past a few hundred thousand matches, dense
  // ones are merged into chunks so the document keeps few pieces.
  const search::SearchCancellation never;
  replace::ReplacePlan plan = replace::planFromMatches(*prepared, document_->snapshot().text, result, never);
  const std::vector<storage::PieceTable::BulkEditSite>& sites = plan.sites;
  const EditorSurface::Selection before = surface_.selection();
  const auto outcome = document_->replaceAll(sites, "Replace All", {before.begin, before.end},
                                             persistence::TextSelection::at(sites.front().range.start));
  if (!outcome) {
    setNotice(QString::fromStdString(outcome.error().describe()));
    return;
  }
  surface_.select(sites.front().range.start, sites.front().range.start);
  surface_.showStatusMessage(replacedNote(stored));
  if (!outcome->undoable) setNotice(QString::fromUtf8(document::kTooLargeToUndoMessage));
}

}  // namespace quorin::app
