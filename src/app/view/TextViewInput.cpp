// The text view's keyboard and mouse.
#include <QApplication>
#include <QContextMenuEvent>
#include <QInputMethodEvent>
#include <QKeyEvent>
#include <QMenu>
#include <QScrollBar>
#include <algorithm>
#include <cmath>

#include "app/view/TextView.h"

namespace quorin::app {

// ---- keyboard and mouse ----------------------------------------------------

int64_t TextView::verticalMove(int64_t from, int64_t rows) {
  const int64_t lineStart = lines_->lineStartOf(from);
  if (!preferredCell_) preferredCell_ = cellOfOffsetInLine(lineStart, lines_->contentEnd(lineStart), from);
  int64_t target = lineStart;
  if (projection_) {
    // Over the shown lines only; past the last (or first) shown line the
    // caret goes to its end (or start), as past the document's.
    const int64_t first = shownLineStartNear(from);
    const bool down = rows > 0;
    target = first;
    bool stopped = false;
    for (; rows > 0 && !stopped; --rows) {
      const auto next = nextRowStart(target);
      stopped = !next;
      if (next) target = *next;
    }
    for (; rows < 0 && !stopped; ++rows) {
      const auto previous = previousRowStart(target);
      stopped = !previous;
      if (previous) target = *previous;
    }
    if (stopped && target == first) return down ? lines_->contentEnd(target) : target;
    return offsetAtCellInLine(target, lines_->contentEnd(target), *preferredCell_);
  }
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
      return moveTo(
          skipHidden(control ? lines_->previousWordStart(caret_) : lines_->previousCharacter(caret_), false));
    case Qt::Key_Right:
      if (!shift && !control && selectionStart != selectionEnd) return moveTo(selectionEnd);
      return moveTo(skipHidden(control ? lines_->nextWordEnd(caret_) : lines_->nextCharacter(caret_), true));
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
    case Qt::Key_Home:
      if (control && projection_) return moveTo(shownLineStartNear(lines_->range().start));
      return moveTo(control ? lines_->range().start : lines_->lineStartOf(caret_));
    case Qt::Key_End:
      if (control && projection_) return moveTo(lines_->contentEnd(shownLineStartNear(lines_->range().end)));
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
  if (lineMarks_ && event->position().x() < kGutterPadding &&
      event->position().y() < static_cast<double>(rows_.size()) * rowHeight()) {
    const auto row = rowIndexAt(event->position().y());
    if (row && rows_[*row].lineNumber) return emit markAreaClicked(*rows_[*row].lineNumber);
  }
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

void TextView::contextMenuEvent(QContextMenuEvent* event) {
  // A click outside the selection moves the caret there first, as editors do.
  const int64_t at = offsetAt(event->pos());
  if (at < std::min(anchor_, caret_) || at > std::max(anchor_, caret_)) setCaret(at);
  const bool selected = anchor_ != caret_;
  const bool editable = !doc_->isReadOnly();
  QMenu menu(this);
  menu.addAction(undoActionText(), this, &TextView::undo)->setEnabled(doc_->canUndo());
  menu.addAction(redoActionText(), this, &TextView::redo)->setEnabled(doc_->canRedo());
  menu.addSeparator();
  menu.addAction(tr("Cu&t"), this, &TextView::cut)->setEnabled(selected && editable);
  menu.addAction(tr("&Copy"), this, &TextView::copy)->setEnabled(selected);
  menu.addAction(tr("&Paste"), this, &TextView::paste)->setEnabled(editable);
  menu.addSeparator();
  menu.addAction(tr("Select &All"), this, &TextView::selectAll);
  menu.exec(event->globalPos());
}

}  // namespace quorin::app
