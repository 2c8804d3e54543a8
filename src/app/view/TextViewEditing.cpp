// The text view's edits: typing, clipboard and undo, each through the document.
#include <QApplication>
#include <QClipboard>

#include "app/view/TextView.h"
#include "base/ByteCount.h"
#include "text/LineEnding.h"

namespace quorin::app {
namespace {

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
  // Where the edit was, even on a line the filter has not shown again yet.
  placeSelection(restored->anchor, restored->caret, false);
  emit undoStateChanged();
}

QString TextView::undoActionText() const {
  const std::string description = doc_->undoDescription();
  if (description.empty()) return tr("Undo");
  return tr("Undo %1").arg(QString::fromStdString(description));
}

QString TextView::redoActionText() const {
  const std::string description = doc_->redoDescription();
  if (description.empty()) return tr("Redo");
  return tr("Redo %1").arg(QString::fromStdString(description));
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

}  // namespace quorin::app
