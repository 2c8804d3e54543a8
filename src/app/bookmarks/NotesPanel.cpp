#include "app/bookmarks/NotesPanel.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPlainTextEdit>
#include <QTextBlock>

#include "app/DocumentTab.h"
#include "app/view/TextView.h"
#include "bookmarks/IncidentReport.h"
#include "logs/Messages.h"

namespace quorin::app {

NotesPanel::NotesPanel(QWidget* parent)
    : QDockWidget(tr("Incident Notes"), parent), editor_(new QPlainTextEdit(this)) {
  setObjectName(QStringLiteral("notesPanel"));
  editor_->setPlaceholderText(
      tr("What happened, in Markdown. Annotate ▸ Insert Link to Caret Line adds a link that jumps back "
         "(Ctrl+click or Ctrl+Enter)."));
  editor_->setEnabled(false);
  // Room for a sentence and a link's label, not a column of words.
  editor_->setMinimumWidth(320);
  editor_->viewport()->installEventFilter(this);
  editor_->installEventFilter(this);
  setWidget(editor_);
  connect(editor_, &QPlainTextEdit::textChanged, this, [this] {
    if (loading_ || !tab_) return;
    if (auto marks = bookmarksOf(*tab_)) marks->setNotes(editor_->toPlainText().toStdString());
  });
}

std::shared_ptr<bookmarks::DocumentBookmarks> NotesPanel::bookmarksOf(const DocumentTab& tab) {
  return std::dynamic_pointer_cast<bookmarks::DocumentBookmarks>(tab.document().lineAnchors());
}

void NotesPanel::showTab(DocumentTab* tab) {
  if (tab_) disconnect(tab_, &DocumentTab::bookmarksChanged, this, nullptr);
  tab_ = tab;
  // The sidecar's notes arrive after the tab opens; the user's own typing comes back unchanged.
  if (tab) {
    connect(tab, &DocumentTab::bookmarksChanged, this, [this] {
      const auto marks = tab_ ? bookmarksOf(*tab_) : nullptr;
      if (marks && editor_->toPlainText().toStdString() != marks->notes()) showTab(tab_);
    });
  }
  const auto marks = tab ? bookmarksOf(*tab) : nullptr;
  loading_ = true;
  editor_->setPlainText(marks ? QString::fromStdString(marks->notes()) : QString());
  loading_ = false;
  editor_->setEnabled(marks != nullptr);
}

QString NotesPanel::text() const { return editor_->toPlainText(); }

void NotesPanel::insertLinkToCaretLine() {
  if (!tab_ || !editor_->isEnabled()) return;
  const auto position = tab_->view()->caretPosition();
  if (!position.line) return;
  const int64_t line = *position.line - 1;
  const auto snapshot = tab_->document().snapshot();
  std::string time;
  if (const auto data = tab_->logData(); data && data->format) {
    const logs::LogSource source = tab_->logSource();
    logs::LineHeads heads(source);
    if (const auto head = logs::headAtOrAbove(*data, heads, line)) time = logs::formatLineTime(head->time);
  }
  const std::string link = bookmarks::lineLink({line, time, bookmarks::reportLineText(snapshot, line)});
  editor_->insertPlainText(QString::fromStdString(link));
  show();
  editor_->setFocus();
}

void NotesPanel::followLinkAtCursor() {
  const QTextCursor cursor = editor_->textCursor();
  const QString block = cursor.block().text();
  const int at = cursor.positionInBlock();
  // The link whose "(quorin:line/N)" ends at or after the cursor, on its line.
  static const QString kScheme = QStringLiteral("](quorin:line/");
  for (int from = 0; (from = block.indexOf(kScheme, from)) >= 0; from += kScheme.size()) {
    const int open = block.lastIndexOf(QLatin1Char('['), from);
    const int close = block.indexOf(QLatin1Char(')'), from);
    if (close < 0 || at < open || at > close) continue;
    bool ok = false;
    const qint64 line = block.mid(from + kScheme.size(), close - from - kScheme.size()).toLongLong(&ok);
    if (ok && line > 0) emit lineActivated(line - 1);
    return;
  }
}

bool NotesPanel::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::MouseButtonRelease && watched == editor_->viewport()) {
    const auto* mouse = static_cast<QMouseEvent*>(event);
    if (mouse->modifiers() & Qt::ControlModifier) {
      editor_->setTextCursor(editor_->cursorForPosition(mouse->position().toPoint()));
      followLinkAtCursor();
      return true;
    }
  }
  if (event->type() == QEvent::KeyPress && watched == editor_) {
    const auto* key = static_cast<QKeyEvent*>(event);
    if ((key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter) &&
        (key->modifiers() & Qt::ControlModifier)) {
      followLinkAtCursor();
      return true;
    }
  }
  return QDockWidget::eventFilter(watched, event);
}

}  // namespace quorin::app
