#include "app/view/TextView.h"

#include <QApplication>
#include <QClipboard>
#include <QFontDatabase>
#include <QInputMethodEvent>
#include <QKeyEvent>
#include <QPainter>
#include <QScrollBar>
#include <algorithm>
#include <cmath>
#include <limits>

#include "app/view/ScrollMapping.h"
#include "base/ByteCount.h"
#include "text/LineEnding.h"

namespace quorin::app {
namespace {

constexpr double kTextMargin = 6;
constexpr double kExtraLeading = 3;  // air between lines, which reads better than the font's own
constexpr int kTypingPauseMs = 1000;

}  // namespace

TextView::TextView(std::shared_ptr<document::Document> document, QWidget* parent)
    : QAbstractScrollArea(parent), doc_(std::move(document)) {
  setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
  setFrameShape(QFrame::NoFrame);
  setFocusPolicy(Qt::StrongFocus);
  setAttribute(Qt::WA_InputMethodEnabled);
  viewport()->setCursor(Qt::IBeamCursor);
  viewport()->setBackgroundRole(QPalette::Base);
  viewport()->setAutoFillBackground(true);
  terminator_ = text::lineTerminator(doc_->lineEnding());
  topOffset_ = caret_ = anchor_ = doc_->editableRange().start;
  typingTimer_.setSingleShot(true);
  typingTimer_.setInterval(kTypingPauseMs);
  connect(&typingTimer_, &QTimer::timeout, this, &TextView::closeTypingGroup);
  connect(verticalScrollBar(), &QScrollBar::valueChanged, this, &TextView::verticalScrollRequested);
  listenerToken_ =
      doc_->addChangeListener([this](const document::DocumentChange& change) { documentChanged(change); });
  updateFontMetrics();
  refreshText();
}

TextView::~TextView() {
  closeTypingGroup();
  doc_->removeChangeListener(listenerToken_);
}

void TextView::updateFontMetrics() {
  const QFontMetricsF metrics(font());
  cellWidth_ = std::max(1.0, metrics.horizontalAdvance(QLatin1Char('M')));
  ascent_ = metrics.ascent();
  lineSpacing_ = metrics.height() + kExtraLeading;
}

double TextView::rowHeight() const { return lineSpacing_; }

int TextView::visibleRowCount() const {
  return std::max(1, static_cast<int>(std::ceil(viewport()->height() / rowHeight())));
}

int TextView::gutterWidth() const {
  const int64_t lines = lines_ ? lines_->estimatedLineCount() : 1;
  const int digits = std::max(3, static_cast<int>(std::to_string(lines).size()));
  return static_cast<int>(std::ceil(digits * cellWidth_)) + 2 * kGutterPadding;
}

double TextView::textLeft() const { return gutterWidth() + kTextMargin; }

int64_t TextView::clampToRange(int64_t offset) const {
  const auto range = lines_->range();
  return std::clamp(offset, range.start, range.end);
}

void TextView::refreshText() {
  lines_.emplace(doc_->snapshot(), doc_->editableRange(), terminator_);
  caret_ = clampToRange(caret_);
  anchor_ = clampToRange(anchor_);
  topOffset_ = lines_->lineStartOf(clampToRange(topOffset_));
  updateRows();
}

void TextView::documentChanged(const document::DocumentChange& change) {
  using Kind = document::DocumentChange::Kind;
  if (editing_) {
    // Our own edit: the caller places the caret and redraws once.
    lines_.emplace(doc_->snapshot(), doc_->editableRange(), terminator_);
    return;
  }
  const bool followingEnd = !rows_.empty() && rows_.back().contentEnd >= lines_->range().end;
  if (!editing_ && change.kind != Kind::reload) {
    // Someone else edited (a replace-all, the table view): positions after the edit move with it.
    const auto& e = change.edit;
    auto shift = [&e](int64_t offset) {
      if (offset >= e.docByteStart + e.bytesRemoved) return offset + e.netByteDelta;
      if (offset > e.docByteStart) return e.docByteStart + e.bytesInserted;
      return offset;
    };
    caret_ = shift(caret_);
    anchor_ = shift(anchor_);
    topOffset_ = shift(topOffset_);
    if (change.kind != Kind::append) closeTypingGroup();
  }
  if (change.kind == Kind::reload) {
    // The history was replaced along with the text.
    typingGroupOpen_ = false;
    typingTimer_.stop();
  }
  refreshText();
  if (change.kind == Kind::append && followingEnd) scrollToOffset(lines_->range().end);
  emit undoStateChanged();
  emit caretMoved();
}

void TextView::updateRows() {
  rows_.clear();
  if (!lines_) return;
  const int count = visibleRowCount();
  widestCells_ = 0;
  int64_t start = topOffset_;
  if (projection_) {
    // A stale top (an edit, a new projection) moves to a shown line; with
    // none shown there is nothing to draw.
    start = topOffset_ = shownLineStartNear(topOffset_);
    if (!isShown(start)) {
      updateScrollBars();
      viewport()->update();
      return;
    }
  }
  std::optional<int64_t> number = lines_->lineNumberOf(start);
  std::optional<int64_t> previousNumber;
  if (projection_ && number && *number > 0) {
    const auto before = projection_->previousVisibleLine(*number - 1);
    previousNumber = before.value_or(-1);
  }
  for (int i = 0; i < count; ++i) {
    const int64_t end = lines_->contentEnd(start);
    const int64_t hidden = number && previousNumber ? *number - *previousNumber - 1 : 0;
    rows_.push_back({start, end, number, hidden});
    const int64_t length = end - start;
    // Bytes stand in for cells here (tabs aside, never fewer): the range of the
    // horizontal bar need not be exact, and laying out every row again would cost a frame.
    widestCells_ = std::max(widestCells_, length + 8);
    const auto next = nextRowStart(start);
    if (!next) break;
    start = *next;
    previousNumber = number;
    number = projection_ ? lines_->lineNumberOf(start) : (number ? std::optional(*number + 1) : number);
  }
  updateScrollBars();
  viewport()->update();
}

void TextView::updateScrollBars() {
  updatingScrollBars_ = true;
  // Filtered, the bar counts the shown rows (growing with the projection).
  const ScrollMapping mapping(projection_ ? projection_->visibleLineCount() : lines_->estimatedLineCount(),
                              visibleRowCount() - 1);
  QScrollBar* v = verticalScrollBar();
  v->setRange(0, mapping.maximum());
  v->setPageStep(std::max(1, visibleRowCount() - 1));
  if (projection_) {
    const auto line = lines_->lineNumberOf(topOffset_);
    const auto row = line ? projection_->row(*line) : std::nullopt;
    v->setValue(mapping.valueForLine(row.value_or(0)));
  } else if (const auto line = lines_->lineNumberOf(topOffset_)) {
    v->setValue(mapping.valueForLine(*line));
  } else {
    // Beyond what the index has counted: place the thumb by bytes.
    const auto range = lines_->range();
    const double fraction =
        range.length() > 0 ? static_cast<double>(topOffset_ - range.start) / range.length() : 0;
    v->setValue(static_cast<int>(fraction * mapping.maximum()));
  }
  const auto visibleCells = static_cast<int64_t>((viewport()->width() - textLeft()) / cellWidth_);
  QScrollBar* h = horizontalScrollBar();
  const int64_t widest = std::max(widestCells_, hCell_);
  h->setRange(0,
              static_cast<int>(std::clamp<int64_t>(widest - visibleCells + 2, 0, ScrollMapping::kMaxValue)));
  h->setPageStep(static_cast<int>(std::max<int64_t>(1, visibleCells)));
  h->setSingleStep(1);
  h->setValue(static_cast<int>(std::min<int64_t>(hCell_, ScrollMapping::kMaxValue)));
  updatingScrollBars_ = false;
}

void TextView::verticalScrollRequested(int value) {
  if (updatingScrollBars_) return;
  if (projection_) {
    const ScrollMapping mapping(projection_->visibleLineCount(), visibleRowCount() - 1);
    const auto line = projection_->line(mapping.lineForValue(value));
    if (const auto start = line ? shownLineStart(*line) : std::nullopt) topOffset_ = *start;
    updateRows();
    return;
  }
  const ScrollMapping mapping(lines_->estimatedLineCount(), visibleRowCount() - 1);
  const int64_t line = mapping.lineForValue(value);
  if (const auto start = lines_->startOfLine(line); start && *start >= lines_->range().start) {
    topOffset_ = *start;
  } else {
    // Not counted yet: go to where the estimate puts it, at a line start.
    const auto range = lines_->range();
    const double fraction = mapping.maximum() > 0 ? static_cast<double>(value) / mapping.maximum() : 0;
    topOffset_ = lines_->lineStartOf(range.start + static_cast<int64_t>(fraction * range.length()));
  }
  updateRows();
}

void TextView::scrollContentsBy(int, int) {
  if (updatingScrollBars_) return;
  hCell_ = horizontalScrollBar()->value();
  viewport()->update();
}

void TextView::scrollByRows(int64_t rows) {
  int64_t top = topOffset_;
  if (projection_) top = shownLineStartNear(top);
  for (; rows > 0; --rows) {
    const auto next = nextRowStart(top);  // keeps the last line on screen
    if (!next) break;
    top = *next;
  }
  for (; rows < 0; ++rows) {
    const auto previous = previousRowStart(top);
    if (!previous) break;
    top = *previous;
  }
  topOffset_ = top;
  updateRows();
}

void TextView::scrollToOffset(int64_t offset, bool center) {
  offset = clampToRange(offset);
  const int64_t lineStart = lines_->lineStartOf(offset);
  const int64_t rowStart = projection_ ? shownLineStartNear(offset) : lineStart;
  const int fullRows = std::max(1, static_cast<int>(viewport()->height() / rowHeight()));
  bool visible = false;
  for (size_t i = 0; i < rows_.size() && static_cast<int>(i) < fullRows; ++i) {
    visible = visible || rows_[i].lineStart == lineStart;
  }
  if (!visible) {
    if (center) {
      // A jump (a search hit, a go-to target): the line in the middle, with its context around it.
      int64_t top = rowStart;
      for (int i = 0; i < fullRows / 2; ++i) {
        const auto previous = previousRowStart(top);
        if (!previous) break;
        top = *previous;
      }
      topOffset_ = top;
    } else if (rowStart < topOffset_) {
      topOffset_ = rowStart;
    } else {
      // The line becomes the last whole row.
      int64_t top = rowStart;
      for (int i = 1; i < fullRows; ++i) {
        const auto previous = previousRowStart(top);
        if (!previous) break;
        top = *previous;
      }
      topOffset_ = top;
    }
  }
  const int64_t cell = cellOfOffsetInLine(lineStart, lines_->contentEnd(lineStart), offset);
  const auto visibleCells = static_cast<int64_t>((viewport()->width() - textLeft()) / cellWidth_);
  if (center && cell < visibleCells - 4) {
    // A jump whose column fits the first screen shows its line from the left
    // edge: scrolled sideways from an earlier long line, short lines would
    // show only their ends, or nothing at all.
    hCell_ = 0;
  } else if (cell < hCell_) {
    hCell_ = std::max<int64_t>(0, cell - 4);
  } else if (visibleCells > 4 && cell >= hCell_ + visibleCells - 1) {
    hCell_ = cell - visibleCells + 4;
  }
  hCell_ = std::max<int64_t>(0, hCell_);
  updateRows();
}

void TextView::ensureCaretVisible() { scrollToOffset(caret_); }

int64_t TextView::cellOfOffsetInLine(int64_t lineStart, int64_t contentEnd, int64_t offset) const {
  offset = std::clamp(offset, lineStart, contentEnd);
  if (contentEnd - lineStart > kExactLayoutBytes) return offset - lineStart;
  return layoutRow(lines_->text(), lineStart, contentEnd, 0, std::numeric_limits<int64_t>::max())
      .cellOf(offset);
}

int64_t TextView::offsetAtCellInLine(int64_t lineStart, int64_t contentEnd, int64_t cell) const {
  const bool exact = contentEnd - lineStart <= kExactLayoutBytes;
  const int64_t from = exact ? 0 : std::max<int64_t>(0, cell - 1);
  const int64_t count = exact ? std::numeric_limits<int64_t>::max() : 4;
  return layoutRow(lines_->text(), lineStart, contentEnd, from, count)
      .offsetAtCell(static_cast<double>(cell));
}

void TextView::select(int64_t begin, int64_t end) { placeSelection(begin, end, true); }

void TextView::placeSelection(int64_t begin, int64_t end, bool onShownLine) {
  closeTypingGroup();
  anchor_ = clampToRange(begin);
  caret_ = clampToRange(end);
  if (onShownLine && projection_ && anchor_ == caret_ && !isShown(lines_->lineStartOf(caret_)) &&
      !beyondEvaluated(lines_->lineStartOf(caret_))) {
    // A jump (the overview, a level step, the timeline) onto a line the
    // filter hides lands on the nearest shown line.
    anchor_ = caret_ = shownLineStartNear(caret_);
  }
  preferredCell_.reset();
  scrollToOffset(caret_, true);
  emit caretMoved();
  emit selectionPlaced(anchor_, caret_);
}

void TextView::setCaret(int64_t offset, bool extendSelection) {
  if (offset != caret_ || !extendSelection) closeTypingGroup();
  caret_ = clampToRange(offset);
  if (!extendSelection) anchor_ = caret_;
  ensureCaretVisible();
  emit caretMoved();
}

void TextView::setHighlightProvider(HighlightProvider provider) {
  highlights_ = std::move(provider);
  viewport()->update();
}

void TextView::refreshHighlights() { viewport()->update(); }

std::vector<int64_t> TextView::visibleLineStarts() const {
  std::vector<int64_t> starts;
  for (const Row& row : rows_) starts.push_back(row.lineStart);
  return starts;
}

TextView::CaretPosition TextView::caretPosition() const {
  const int64_t start = lines_->lineStartOf(caret_);
  CaretPosition position;
  if (const auto line = lines_->lineNumberOf(caret_)) position.line = *line + 1;
  position.column = cellOfOffsetInLine(start, lines_->contentEnd(start), caret_) + 1;
  return position;
}

}  // namespace quorin::app
