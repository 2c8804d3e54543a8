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

constexpr int kGutterPadding = 10;
constexpr double kTextMargin = 6;
constexpr double kExtraLeading = 3;  // air between lines, which reads better than the font's own
constexpr int kTypingPauseMs = 1000;

QColor blend(const QColor& a, const QColor& b, double amountOfB) {
  return QColor::fromRgbF(static_cast<float>(a.redF() + (b.redF() - a.redF()) * amountOfB),
                          static_cast<float>(a.greenF() + (b.greenF() - a.greenF()) * amountOfB),
                          static_cast<float>(a.blueF() + (b.blueF() - a.blueF()) * amountOfB));
}

std::string lineBreakBytes(text::LineEnding ending) {
  switch (ending) {
    case text::LineEnding::crlf: return "\r\n";
    case text::LineEnding::cr: return "\r";
    case text::LineEnding::lf: break;
  }
  return "\n";
}

// Pasted text takes the document's line ending, as typed line breaks do.
std::string withLineEnding(const QString& text, text::LineEnding ending) {
  QString normalized = text;
  normalized.replace(QStringLiteral("\r\n"), QStringLiteral("\n"))
      .replace(QLatin1Char('\r'), QLatin1Char('\n'));
  const std::string utf8 = normalized.toStdString();
  const std::string lineBreak = lineBreakBytes(ending);
  if (lineBreak == "\n") return utf8;
  std::string out;
  out.reserve(utf8.size());
  for (const char c : utf8) {
    if (c == '\n') {
      out += lineBreak;
    } else {
      out += c;
    }
  }
  return out;
}

persistence::TextSelection selectionOf(int64_t anchor, int64_t caret) { return {anchor, caret}; }

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
  int64_t start = topOffset_;
  std::optional<int64_t> number = lines_->lineNumberOf(start);
  widestCells_ = 0;
  for (int i = 0; i < count; ++i) {
    const int64_t end = lines_->contentEnd(start);
    rows_.push_back({start, end, number});
    const int64_t length = end - start;
    // Bytes stand in for cells here (tabs aside, never fewer): the range of the
    // horizontal bar need not be exact, and laying out every row again would cost a frame.
    widestCells_ = std::max(widestCells_, length + 8);
    const auto next = lines_->nextLineStart(start);
    if (!next || *next > lines_->range().end || *next == start) break;
    if (*next == lines_->range().end && lines_->text().byte(*next - 1) != terminator_) break;
    start = *next;
    if (number) ++*number;
  }
  updateScrollBars();
  viewport()->update();
}

void TextView::updateScrollBars() {
  updatingScrollBars_ = true;
  const ScrollMapping mapping(lines_->estimatedLineCount(), visibleRowCount() - 1);
  QScrollBar* v = verticalScrollBar();
  v->setRange(0, mapping.maximum());
  v->setPageStep(std::max(1, visibleRowCount() - 1));
  if (const auto line = lines_->lineNumberOf(topOffset_)) {
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
  for (; rows > 0; --rows) {
    const auto next = lines_->nextLineStart(top);
    // Keep the last line on screen.
    if (!next || *next > lines_->range().end) break;
    if (*next == lines_->range().end && lines_->text().byte(*next - 1) != terminator_) break;
    top = *next;
  }
  for (; rows < 0; ++rows) {
    const auto previous = lines_->previousLineStart(top);
    if (!previous) break;
    top = *previous;
  }
  topOffset_ = top;
  updateRows();
}

void TextView::scrollToOffset(int64_t offset, bool center) {
  offset = clampToRange(offset);
  const int64_t lineStart = lines_->lineStartOf(offset);
  const int fullRows = std::max(1, static_cast<int>(viewport()->height() / rowHeight()));
  bool visible = false;
  for (size_t i = 0; i < rows_.size() && static_cast<int>(i) < fullRows; ++i) {
    visible = visible || rows_[i].lineStart == lineStart;
  }
  if (!visible) {
    if (center) {
      // A jump (a search hit, a go-to target): the line in the middle, with its context around it.
      int64_t top = lineStart;
      for (int i = 0; i < fullRows / 2; ++i) {
        const auto previous = lines_->previousLineStart(top);
        if (!previous) break;
        top = *previous;
      }
      topOffset_ = top;
    } else if (lineStart < topOffset_) {
      topOffset_ = lineStart;
    } else {
      // The line becomes the last whole row.
      int64_t top = lineStart;
      for (int i = 1; i < fullRows; ++i) {
        const auto previous = lines_->previousLineStart(top);
        if (!previous) break;
        top = *previous;
      }
      topOffset_ = top;
    }
  }
  const int64_t cell = cellOfOffsetInLine(lineStart, lines_->contentEnd(lineStart), offset);
  const auto visibleCells = static_cast<int64_t>((viewport()->width() - textLeft()) / cellWidth_);
  if (cell < hCell_) {
    hCell_ = std::max<int64_t>(0, cell - 4);
  } else if (cell >= hCell_ + visibleCells - 1) {
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

void TextView::select(int64_t begin, int64_t end) {
  closeTypingGroup();
  anchor_ = clampToRange(begin);
  caret_ = clampToRange(end);
  preferredCell_.reset();
  scrollToOffset(caret_, true);
  emit caretMoved();
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

// ---- editing ---------------------------------------------------------------

void TextView::reportRefusal(const document::EditRefusal& refusal) {
  emit statusMessage(QString::fromStdString(refusal.describe()));
}

bool TextView::applyEdit(storage::ByteRange range, const std::string& bytes, const char* action,
                         bool typing) {
  if (doc_->isReadOnly()) {
    reportRefusal({document::EditRefusal::Kind::readOnly});
    return false;
  }
  if (range.length() == 0 && bytes.empty()) return false;
  const bool continuesTyping = typing && typingGroupOpen_ && range.start == typingEnd_ && range.length() == 0;
  if (!continuesTyping) closeTypingGroup();
  const auto before = selectionOf(anchor_, caret_);
  const int64_t after = range.start + static_cast<int64_t>(bytes.size());
  if (!continuesTyping) doc_->beginUndoGroup(action, before);
  editing_ = true;
  const auto result = doc_->replace(range, bytes, before, selectionOf(after, after));
  editing_ = false;
  if (!result) {
    doc_->endUndoGroup(before);
    typingGroupOpen_ = false;
    reportRefusal(result.error());
    return false;
  }
  caret_ = anchor_ = after;
  preferredCell_.reset();
  if (typing) {
    typingGroupOpen_ = true;
    typingEnd_ = after;
    typingTimer_.start();
  } else {
    doc_->endUndoGroup(selectionOf(after, after));
  }
  ensureCaretVisible();
  emit undoStateChanged();
  emit caretMoved();
  return true;
}

void TextView::closeTypingGroup() {
  typingTimer_.stop();
  if (!typingGroupOpen_) return;
  typingGroupOpen_ = false;
  doc_->endUndoGroup(selectionOf(typingEnd_, typingEnd_));
  emit undoStateChanged();
}

void TextView::insertText(const QString& text) {
  const storage::ByteRange range{std::min(anchor_, caret_), std::max(anchor_, caret_)};
  applyEdit(range, withLineEnding(text, doc_->lineEnding()), "Typing", range.length() == 0);
}

void TextView::undo() { stepHistory(true); }

void TextView::redo() { stepHistory(false); }

void TextView::stepHistory(bool backward) {
  closeTypingGroup();
  editing_ = true;
  const auto restored = backward ? doc_->undo() : doc_->redo();
  editing_ = false;
  if (!restored) return;
  refreshText();
  select(restored->anchor, restored->caret);
  emit undoStateChanged();
}

QString TextView::undoActionText() const {
  const auto* entry = doc_->undoStore().nextUndo();
  if (!entry || entry->description.empty()) return tr("Undo");
  return tr("Undo %1").arg(QString::fromStdString(entry->description));
}

QString TextView::redoActionText() const {
  const auto* entry = doc_->undoStore().nextRedo();
  if (!entry || entry->description.empty()) return tr("Redo");
  return tr("Redo %1").arg(QString::fromStdString(entry->description));
}

void TextView::copy() {
  const storage::ByteRange range{std::min(anchor_, caret_), std::max(anchor_, caret_)};
  if (range.length() == 0) return;
  if (range.length() > kMaxClipboardBytes) {
    emit statusMessage(tr("The selection is too large to copy (%1; the limit is %2).")
                           .arg(QString::fromStdString(base::formatByteCount(range.length())),
                                QString::fromStdString(base::formatByteCount(kMaxClipboardBytes))));
    return;
  }
  QApplication::clipboard()->setText(QString::fromStdString(lines_->text().text(range)));
}

void TextView::cut() {
  const storage::ByteRange range{std::min(anchor_, caret_), std::max(anchor_, caret_)};
  if (range.length() == 0 || range.length() > kMaxClipboardBytes) {
    copy();
    return;
  }
  if (doc_->isReadOnly()) {
    reportRefusal({document::EditRefusal::Kind::readOnly});
    return;
  }
  copy();
  applyEdit(range, {}, "Cut", false);
}

void TextView::paste() {
  const QString text = QApplication::clipboard()->text();
  if (text.isEmpty()) return;
  const storage::ByteRange range{std::min(anchor_, caret_), std::max(anchor_, caret_)};
  applyEdit(range, withLineEnding(text, doc_->lineEnding()), "Paste", false);
}

void TextView::selectAll() {
  const auto range = lines_->range();
  closeTypingGroup();
  anchor_ = range.start;
  caret_ = range.end;
  viewport()->update();
  emit caretMoved();
}

// ---- keyboard and mouse ----------------------------------------------------

int64_t TextView::verticalMove(int64_t from, int64_t rows) {
  const int64_t lineStart = lines_->lineStartOf(from);
  if (!preferredCell_) preferredCell_ = cellOfOffsetInLine(lineStart, lines_->contentEnd(lineStart), from);
  int64_t target = lineStart;
  for (; rows > 0; --rows) {
    const auto next = lines_->nextLineStart(target);
    if (!next || *next > lines_->range().end) return lines_->range().end;
    target = *next;
  }
  for (; rows < 0; ++rows) {
    const auto previous = lines_->previousLineStart(target);
    if (!previous) return lines_->range().start;
    target = *previous;
  }
  return offsetAtCellInLine(target, lines_->contentEnd(target), *preferredCell_);
}

void TextView::keyPressEvent(QKeyEvent* event) {
  const bool shift = event->modifiers() & Qt::ShiftModifier;
  const bool control = event->modifiers() & Qt::ControlModifier;
  const auto keepColumn = preferredCell_;
  auto moveTo = [&](int64_t offset) {
    const auto kept = preferredCell_;
    setCaret(offset, shift);
    preferredCell_ = kept;
  };
  const int page = std::max(1, static_cast<int>(viewport()->height() / rowHeight()) - 1);
  const int64_t selectionStart = std::min(anchor_, caret_);
  const int64_t selectionEnd = std::max(anchor_, caret_);
  preferredCell_.reset();
  switch (event->key()) {
    case Qt::Key_Left:
      if (!shift && !control && selectionStart != selectionEnd) return moveTo(selectionStart);
      return moveTo(control ? lines_->previousWordStart(caret_) : lines_->previousCharacter(caret_));
    case Qt::Key_Right:
      if (!shift && !control && selectionStart != selectionEnd) return moveTo(selectionEnd);
      return moveTo(control ? lines_->nextWordEnd(caret_) : lines_->nextCharacter(caret_));
    case Qt::Key_Up:
      if (control) return scrollByRows(-1);
      preferredCell_ = keepColumn;
      return moveTo(verticalMove(caret_, -1));
    case Qt::Key_Down:
      if (control) return scrollByRows(1);
      preferredCell_ = keepColumn;
      return moveTo(verticalMove(caret_, 1));
    case Qt::Key_PageUp:
      preferredCell_ = keepColumn;
      scrollByRows(-page);
      return moveTo(verticalMove(caret_, -page));
    case Qt::Key_PageDown:
      preferredCell_ = keepColumn;
      scrollByRows(page);
      return moveTo(verticalMove(caret_, page));
    case Qt::Key_Home: return moveTo(control ? lines_->range().start : lines_->lineStartOf(caret_));
    case Qt::Key_End:
      return moveTo(control ? lines_->range().end : lines_->contentEnd(lines_->lineStartOf(caret_)));
    case Qt::Key_Backspace:
      if (selectionStart != selectionEnd) {
        applyEdit({selectionStart, selectionEnd}, {}, "Delete", false);
      } else if (caret_ > lines_->range().start) {
        applyEdit({lines_->previousCharacter(caret_), caret_}, {}, "Delete", false);
      }
      return;
    case Qt::Key_Delete:
      if (selectionStart != selectionEnd) {
        applyEdit({selectionStart, selectionEnd}, {}, "Delete", false);
      } else if (caret_ < lines_->range().end) {
        applyEdit({caret_, lines_->nextCharacter(caret_)}, {}, "Delete", false);
      }
      return;
    case Qt::Key_Return:
    case Qt::Key_Enter: return insertText(QStringLiteral("\n"));
    case Qt::Key_Tab: return insertText(QStringLiteral("\t"));
    default: break;
  }
  if (event->matches(QKeySequence::Undo)) return undo();
  if (event->matches(QKeySequence::Redo)) return redo();
  if (event->matches(QKeySequence::Copy)) return copy();
  if (event->matches(QKeySequence::Cut)) return cut();
  if (event->matches(QKeySequence::Paste)) return paste();
  if (event->matches(QKeySequence::SelectAll)) return selectAll();
  const QString text = event->text();
  if (!text.isEmpty() && !control && text.at(0).isPrint()) return insertText(text);
  QAbstractScrollArea::keyPressEvent(event);
}

std::optional<size_t> TextView::rowIndexAt(double y) const {
  if (rows_.empty()) return std::nullopt;
  const auto index = static_cast<int64_t>(std::floor(y / rowHeight()));
  return static_cast<size_t>(std::clamp<int64_t>(index, 0, static_cast<int64_t>(rows_.size()) - 1));
}

int64_t TextView::offsetAt(const QPointF& point) const {
  const auto index = rowIndexAt(point.y());
  if (!index) return lines_->range().start;
  if (point.y() >= static_cast<double>(rows_.size()) * rowHeight() &&
      rows_.back().contentEnd >= lines_->range().end) {
    return lines_->range().end;
  }
  const Row& row = rows_[*index];
  const double cell = std::max(0.0, (point.x() - textLeft()) / cellWidth_ + static_cast<double>(hCell_));
  const bool exact = row.contentEnd - row.lineStart <= kExactLayoutBytes;
  const RowLayout layout =
      layoutRow(lines_->text(), row.lineStart, row.contentEnd, exact ? 0 : hCell_,
                exact ? std::numeric_limits<int64_t>::max() : static_cast<int64_t>(cell) + 2);
  return layout.offsetAtCell(cell);
}

void TextView::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton) return QAbstractScrollArea::mousePressEvent(event);
  selecting_ = true;
  preferredCell_.reset();
  setCaret(offsetAt(event->position()), event->modifiers() & Qt::ShiftModifier);
}

void TextView::mouseMoveEvent(QMouseEvent* event) {
  if (!selecting_) return;
  const double y = event->position().y();
  if (y < 0) {
    scrollByRows(-1);
  } else if (y > viewport()->height()) {
    scrollByRows(1);
  }
  const int64_t offset = offsetAt(event->position());
  if (offset == caret_) return;
  caret_ = offset;
  viewport()->update();
  emit caretMoved();
}

void TextView::mouseReleaseEvent(QMouseEvent* event) {
  selecting_ = false;
  QAbstractScrollArea::mouseReleaseEvent(event);
}

void TextView::mouseDoubleClickEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton) return;
  const auto word = lines_->wordAt(offsetAt(event->position()));
  select(word.start, word.end);
}

void TextView::wheelEvent(QWheelEvent* event) {
  const QPoint steps = event->angleDelta() / 40;  // three rows per notch
  if (steps.y() != 0) scrollByRows(-steps.y());
  if (steps.x() != 0) {
    hCell_ = std::max<int64_t>(0, hCell_ - steps.x() * 2);
    updateScrollBars();
    viewport()->update();
  }
  event->accept();
}

void TextView::focusOutEvent(QFocusEvent* event) {
  closeTypingGroup();
  QAbstractScrollArea::focusOutEvent(event);
}

void TextView::inputMethodEvent(QInputMethodEvent* event) {
  // Composed characters (dead keys, input methods) arrive here rather than as key presses.
  if (!event->commitString().isEmpty()) insertText(event->commitString());
  event->accept();
}

void TextView::changeEvent(QEvent* event) {
  if (event->type() == QEvent::FontChange) {
    updateFontMetrics();
    updateRows();
  }
  QAbstractScrollArea::changeEvent(event);
}

void TextView::resizeEvent(QResizeEvent* event) {
  QAbstractScrollArea::resizeEvent(event);
  updateRows();
}

// ---- painting --------------------------------------------------------------

void TextView::paintEvent(QPaintEvent*) {
  QPainter painter(viewport());
  const QPalette& pal = palette();
  const QColor base = pal.color(QPalette::Base);
  const QColor text = pal.color(QPalette::Text);
  const int gutter = gutterWidth();
  const double left = textLeft();
  const int width = viewport()->width();
  painter.fillRect(0, 0, gutter, viewport()->height(), blend(base, text, 0.05));

  const auto visibleCells = static_cast<int64_t>((width - left) / cellWidth_) + 2;
  const int64_t selectionStart = std::min(anchor_, caret_);
  const int64_t selectionEnd = std::max(anchor_, caret_);
  std::vector<storage::ByteRange> marks;
  if (highlights_ && !rows_.empty()) marks = highlights_({rows_.front().lineStart, rows_.back().contentEnd});
  const QColor markColor(255, 200, 0, 110);
  const QColor selectionColor =
      pal.color(hasFocus() ? QPalette::Active : QPalette::Inactive, QPalette::Highlight);
  const int64_t caretLine = lines_->lineStartOf(caret_);

  painter.setClipRect(QRectF(left - 2, 0, width, viewport()->height()));
  for (size_t i = 0; i < rows_.size(); ++i) {
    const Row& row = rows_[i];
    const double top = static_cast<double>(i) * rowHeight();
    const RowLayout layout = layoutRow(lines_->text(), row.lineStart, row.contentEnd, hCell_, visibleCells);
    auto xOf = [&](int64_t offset) {
      return left + static_cast<double>(layout.cellOf(offset) - hCell_) * cellWidth_;
    };
    if (row.lineStart == caretLine && selectionStart == selectionEnd) {
      painter.fillRect(QRectF(left - 2, top, width, rowHeight()), blend(base, text, 0.04));
    }
    auto tint = [&](int64_t from, int64_t to, const QColor& color, bool throughLineEnd) {
      const int64_t a = std::max(from, row.lineStart);
      const int64_t b = std::min(to, row.contentEnd);
      if (a > b || (a == b && !throughLineEnd)) return;
      double right = xOf(b);
      if (throughLineEnd && to > row.contentEnd) right += cellWidth_ * 0.6;  // the selected line break
      painter.fillRect(QRectF(xOf(a), top, std::max(1.0, right - xOf(a)), rowHeight()), color);
    };
    for (const auto& mark : marks) tint(mark.start, mark.end, markColor, false);
    if (selectionStart != selectionEnd) tint(selectionStart, selectionEnd, selectionColor, true);
    painter.setPen(text);
    painter.drawText(
        QPointF(left + static_cast<double>(layout.firstCell - hCell_) * cellWidth_, top + ascent_ + 1),
        layout.display);
    if (row.lineStart == caretLine && hasFocus() && caret_ >= row.lineStart && caret_ <= row.contentEnd) {
      painter.fillRect(QRectF(xOf(caret_) - 1, top + 1, 2, rowHeight() - 2), text);
    }
  }
  painter.setClipping(false);
  // The gutter: line numbers where the index knows them.
  const QColor numberColor = blend(base, text, 0.45);
  for (size_t i = 0; i < rows_.size(); ++i) {
    if (!rows_[i].lineNumber) continue;
    const bool current = rows_[i].lineStart == caretLine;
    painter.setPen(current ? text : numberColor);
    const QRectF cell(0, static_cast<double>(i) * rowHeight(), gutter - kGutterPadding, rowHeight());
    painter.drawText(cell.adjusted(0, 1, 0, 0), Qt::AlignRight | Qt::AlignTop,
                     QString::number(*rows_[i].lineNumber + 1));
  }
  if (rows_.empty() || (lines_->range().length() == 0 && !hasFocus())) {
    painter.setPen(numberColor);
  }
}

}  // namespace quorin::app
