// The text view through a filter's projection: which line starts are rows,
// and what becomes of the caret and the top line when the projection changes.
#include "app/view/ShownLines.h"
#include "app/view/TextView.h"
#include "filter/FilterProjection.h"

namespace quorin::app {

void TextView::setLineProjection(std::shared_ptr<const search::LineProjection> projection) {
  // The caret keeps its line (not its row) and, when it was on screen, its
  // height on screen; otherwise the top line stays where it was.
  const int64_t caretLine = lines_->lineStartOf(caret_);
  std::optional<int> height;
  for (size_t i = 0; i < rows_.size() && !height; ++i) {
    if (rows_[i].lineStart == caretLine) height = static_cast<int>(i);
  }
  projection_ = std::move(projection);
  bool moved = false;
  if (projection_ && !isShown(caretLine) && !beyondEvaluated(caretLine)) {
    const int64_t shown = shownLineStartNear(caret_);
    if (isShown(shown)) {
      closeTypingGroup();
      caret_ = anchor_ = shown;
      preferredCell_.reset();
      moved = true;
    }
  }
  if (height) {
    int64_t top = projection_ ? shownLineStartNear(caret_) : lines_->lineStartOf(caret_);
    for (int i = 0; i < *height; ++i) {
      const auto previous = previousRowStart(top);
      if (!previous) break;
      top = *previous;
    }
    topOffset_ = top;
  }
  updateRows();
  if (moved) emit caretMoved();
}

bool TextView::beyondEvaluated(int64_t lineStart) const {
  // A filter still computing has not decided about the lines past its
  // prefix: the caret waits there rather than being pulled back.
  const auto* filter = dynamic_cast<const filter::FilterProjection*>(projection_.get());
  if (!filter || filter->isComplete()) return false;
  const auto line = lines_->lineNumberOf(lineStart);
  return line && *line >= filter->linesEvaluated();
}

std::optional<int64_t> TextView::nextRowStart(int64_t lineStart) const {
  if (projection_) {
    const auto line = lines_->lineNumberOf(lineStart);
    if (!line) return std::nullopt;
    const auto shown = projection_->nextVisibleLine(*line + 1);
    return shown ? shownLineStart(*shown) : std::nullopt;
  }
  const auto next = lines_->nextLineStart(lineStart);
  if (!next || *next > lines_->range().end || *next == lineStart) return std::nullopt;
  if (*next == lines_->range().end && lines_->text().byte(*next - 1) != terminator_) return std::nullopt;
  return next;
}

std::optional<int64_t> TextView::previousRowStart(int64_t lineStart) const {
  if (!projection_) return lines_->previousLineStart(lineStart);
  const auto line = lines_->lineNumberOf(lineStart);
  if (!line || *line == 0) return std::nullopt;
  const auto shown = projection_->previousVisibleLine(*line - 1);
  return shown ? shownLineStart(*shown) : std::nullopt;
}

std::optional<int64_t> TextView::shownLineStart(int64_t line) const {
  // The projection may count lines the text no longer has (an edit just
  // removed them and the filter has not answered yet).
  const auto start = lines_->startOfLine(line);
  if (!start || *start < lines_->range().start || *start > lines_->range().end) return std::nullopt;
  return start;
}

bool TextView::isShown(int64_t lineStart) const {
  if (!projection_) return true;
  const auto line = lines_->lineNumberOf(lineStart);
  return line && projection_->isVisible(*line);
}

int64_t TextView::shownLineStartNear(int64_t offset) const {
  const int64_t lineStart = lines_->lineStartOf(clampToRange(offset));
  if (!projection_) return lineStart;
  const auto line = lines_->lineNumberOf(lineStart);
  if (!line) return lineStart;
  const auto shown = nearestShownLine(*projection_, *line);
  if (!shown) return lineStart;
  return shownLineStart(*shown).value_or(lineStart);
}

int64_t TextView::skipHidden(int64_t offset, bool forward) const {
  if (!projection_ || isShown(lines_->lineStartOf(offset))) return offset;
  const int64_t from = lines_->lineStartOf(caret_);
  if (forward) return nextRowStart(from).value_or(caret_);
  const auto previous = previousRowStart(from);
  return previous ? lines_->contentEnd(*previous) : caret_;
}

}  // namespace quorin::app
