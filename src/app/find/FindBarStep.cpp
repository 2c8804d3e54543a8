// The find bar's steps: Enter, F3 and Shift+F3 through the stored matches
// or, before a count answers, a bounded find-next scan; both pass over
// matches on lines a filter hides.
#include <QLabel>

#include "app/find/FindBar.h"
#include "app/find/FindSummary.h"

namespace quorin::app {
namespace {

storage::ByteRange ordered(EditorSurface::Selection s) {
  return {std::min(s.begin, s.end), std::max(s.begin, s.end)};
}

}  // namespace

void FindBar::findNext() { step(false); }
void FindBar::findPrevious() { step(true); }

void FindBar::step(bool backward) {
  if (query().isEmpty()) {
    activate();
    return;
  }
  rememberQuery();
  if (haveResult_ && lastResult_.compileError && !matches_.isStale()) return;  // the summary says why
  if (isVisible() && !haveResult_ && !isCounting()) startCount();
  const storage::ByteRange selected = ordered(surface_.selection());
  const int64_t from = backward ? selected.start : selected.end;
  const bool current = matches_.version() == document_->version();
  if (current && (backward ? matches_.answersPrevious(from) : matches_.answersNext(from))) {
    // Matches on lines a filter hides are passed over; the count still
    // counts them, as log viewers do.
    bool wrapped = false;
    int64_t at = from;
    for (size_t tries = 0; tries <= matches_.size(); ++tries) {
      bool wrappedNow = false;
      const auto hit =
          backward ? matches_.previous(at, true, &wrappedNow) : matches_.next(at, true, &wrappedNow);
      wrapped = wrapped || wrappedNow;
      if (!hit) return;
      if (!onHiddenLine(*hit)) return landOn(*hit, wrapped, backward);
      if (wrapped && (backward ? hit->start < from : hit->start >= from)) break;  // round once
      at = backward ? hit->start : hit->end;
    }
    setNotice(allMatchesHiddenNote());
    return;
  }
  if (stepHandle_.cancellation) return;  // one scan at a time; the next press continues from its answer
  setNotice({});
  scan(from, backward, from, false, 0);
}

void FindBar::scan(int64_t from, bool backward, int64_t origin, bool wrappedBefore, int hops) {
  std::weak_ptr<FindBar*> alive = alive_;
  const int64_t version = document_->version();
  stepHandle_ = finder_.start(
      {options(), from, backward, true}, document_->snapshot().text,
      [alive, version, backward, origin, wrappedBefore, hops](search::FindNextResult result) {
        const auto bar = alive.lock();
        if (!bar) return;
        FindBar& self = **bar;
        self.stepHandle_ = {};
        if (result.cancelled || version != self.document_->version()) return;
        if (!result.found()) {
          self.setNotice(QString::fromStdString(result.describe()));
          return;
        }
        const bool wrapped = wrappedBefore || result.wrapped;
        if (!self.onHiddenLine(*result.match)) return self.landOn(*result.match, wrapped, backward);
        // A hidden match: look on from it, until the scan comes round or
        // has passed over so many that the count should answer instead.
        const auto& m = *result.match;
        const bool round = wrapped && (backward ? m.start < origin : m.start >= origin);
        if (round || hops >= kMaxHiddenHops) return self.setNotice(allMatchesHiddenNote());
        const int64_t next = backward ? m.start : std::max(m.end, m.start + 1);
        self.scan(next, backward, origin, wrapped, hops + 1);
      },
      &mainQueue_);
}

bool FindBar::onHiddenLine(storage::ByteRange range) const {
  const search::LineProjection* shown = surface_.shownLines();
  if (!shown) return false;
  const auto line = document_->snapshot().lines.lineContaining(range.start);
  return line && !shown->isVisible(*line);
}

void FindBar::landOn(storage::ByteRange range, bool wrapped, bool backward) {
  setNotice({});
  surface_.select(range.start, range.end);
  // The wrap note belongs to the step that wrapped; the next step takes it away.
  if (wrapped) {
    surface_.showStatusMessage(wrapNote(backward));
  } else if (wrapNoteShown_) {
    surface_.showStatusMessage(QString());
  }
  wrapNoteShown_ = wrapped;
  showSummary();
}

}  // namespace quorin::app
