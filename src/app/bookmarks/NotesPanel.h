#pragma once

#include <QDockWidget>
#include <QPointer>
#include <memory>

#include "bookmarks/DocumentBookmarks.h"

class QPlainTextEdit;

namespace quorin::app {

class DocumentTab;

// The incident notes of the current tab: a running Markdown text kept with
// its bookmarks (in the sidecar). Links to lines, written
// [line 1,234 · time · text](quorin:line/1234), jump to their line on
// Ctrl+click or Ctrl+Enter. Thread-safety: GUI thread only.
class NotesPanel : public QDockWidget {
  Q_OBJECT

 public:
  explicit NotesPanel(QWidget* parent = nullptr);

  // Shows the notes of `tab` (none: the panel is empty and read-only).
  void showTab(DocumentTab* tab);
  // Inserts a link to the tab's caret line at the notes' cursor.
  void insertLinkToCaretLine();
  // The text shown (for tests and the screenshot tour).
  QString text() const;
  QPlainTextEdit* editor() const { return editor_; }

  // The notes of a tab's document: its bookmarks' notes (null when it has none attached).
  static std::shared_ptr<bookmarks::DocumentBookmarks> bookmarksOf(const DocumentTab& tab);

 signals:
  // A link was followed: the tab should show this 0-based line.
  void lineActivated(qint64 line);

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void followLinkAtCursor();

  QPlainTextEdit* editor_;
  QPointer<DocumentTab> tab_;
  bool loading_ = false;
};

}  // namespace quorin::app
