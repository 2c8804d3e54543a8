#pragma once

#include <QAbstractScrollArea>
#include <QColor>
#include <QTimer>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "app/EditorSurface.h"
#include "app/view/LogLineStyle.h"
#include "app/view/TextLines.h"
#include "bookmarks/Markers.h"
#include "document/Document.h"
#include "search/LineProjection.h"

class QPainter;

namespace quorin::app {

// The editor's text view. It draws only the rows in sight, read from the
// latest snapshot of the document and its line index, so a frame costs the
// same on a 2 GiB file as on a small one; a line of a gigabyte is laid out
// only where it is visible. Positions are byte offsets: the top row is kept
// as the offset of its line start, so scrolling works before the index has
// counted the lines (the scroll bar estimates, and corrects itself as the
// index grows) and past the 2^31 lines a scroll bar can count.
//
// Edits go to the document with the selection to restore on undo; typing is
// grouped into one undo step until the caret moves elsewhere or a second
// passes. Thread-safety: GUI thread only. Lifetime: holds the document.
class TextView : public QAbstractScrollArea, public EditorSurface {
  Q_OBJECT

 public:
  explicit TextView(std::shared_ptr<document::Document> document, QWidget* parent = nullptr);
  ~TextView() override;

  document::Document& document() const { return *doc_; }

  // EditorSurface
  Selection selection() const override { return {anchor_, caret_}; }
  void select(int64_t begin, int64_t end) override;
  void setHighlightProvider(HighlightProvider provider) override;
  // The document's log index and severity rules: log lines are drawn with
  // their level's colours and their timestamps dimmed.
  void setLogData(std::shared_ptr<const logs::LogIndexData> data, logs::SeverityRules rules);
  // Shows only the lines `projection` shows (a filter), each with its own
  // line number; null shows every line again. The caret keeps its line.
  void setLineProjection(std::shared_ptr<const search::LineProjection> projection);
  const std::shared_ptr<const search::LineProjection>& lineProjection() const { return projection_; }
  const search::LineProjection* shownLines() const override { return projection_.get(); }
  void refreshHighlights() override;
  // Highlight rules drawn on the rows shown (null: none). A rule switched
  // off for being too slow is told once through statusMessage.
  void setMarkers(std::shared_ptr<bookmarks::CompiledMarkers> markers);
  // Marks in the gutter (bookmarks): the marked lines among first…last
  // (0-based, inclusive), ascending, and whether each has a note. Asked at
  // each paint for the lines on screen only.
  struct LineMark {
    int64_t line = 0;
    bool noted = false;
  };
  using LineMarkProvider = std::function<std::vector<LineMark>(int64_t firstLine, int64_t lastLine)>;
  void setLineMarkProvider(LineMarkProvider provider);
  // The gutter mark's colour, plain or with a note.
  static QColor lineMarkColor(bool noted);
  void showStatusMessage(const QString& text) override { emit statusMessage(text); }

  int64_t caret() const { return caret_; }
  int64_t topOffset() const { return topOffset_; }
  // Rows that fit in the viewport (the last may be partly visible).
  int visibleRowCount() const;
  // The document offsets of the line starts drawn, top to bottom.
  std::vector<int64_t> visibleLineStarts() const;

  // Takes a new snapshot (after the line index progressed) and redraws.
  void refreshText();
  void scrollByRows(int64_t rows);
  // Scrolls as little as needed to show `offset`, or, with `center`, puts its
  // line in the middle when it is off screen.
  void scrollToOffset(int64_t offset, bool center = false);
  void setCaret(int64_t offset, bool extendSelection = false);

  // Editing, as the menu actions do it.
  void insertText(const QString& text);
  void undo();
  void redo();
  void cut();
  void copy();
  void paste();
  void selectAll();
  // Ends the typing run so that the next keystroke starts a new undo step.
  void closeTypingGroup();
  QString undoActionText() const;
  QString redoActionText() const;

  // Line (when known) and column of the caret, both from 1, for the status bar.
  struct CaretPosition {
    std::optional<int64_t> line;
    int64_t column = 1;
  };
  CaretPosition caretPosition() const;
  int64_t selectionLength() const { return std::abs(caret_ - anchor_); }

  // Copy and cut refuse selections above this, which would stall the desktop's clipboard.
  static constexpr int64_t kMaxClipboardBytes = 256 * 1024 * 1024;

 signals:
  void caretMoved();
  // select() placed the selection for someone (a search hit, a go-to
  // target, an undone edit): a table showing the same text follows it.
  void selectionPlaced(qint64 begin, qint64 end);
  void statusMessage(const QString& text);
  void undoStateChanged();
  // A click in the mark area at the gutter's left edge (where the line marks are
  // drawn), on this 0-based line; only while there is a mark provider.
  void markAreaClicked(qint64 line);

 protected:
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;
  void focusOutEvent(QFocusEvent* event) override;
  void inputMethodEvent(QInputMethodEvent* event) override;
  void changeEvent(QEvent* event) override;
  void contextMenuEvent(QContextMenuEvent* event) override;
  void scrollContentsBy(int dx, int dy) override;

 private:
  static constexpr int kGutterPadding = 10;

  struct Row {
    int64_t lineStart = 0;
    int64_t contentEnd = 0;
    std::optional<int64_t> lineNumber;  // from 0
    int64_t hiddenBefore = 0;           // lines a filter hides between this row and the one above
  };

  const TextLines& lines() const { return *lines_; }
  void documentChanged(const document::DocumentChange& change);
  void updateRows();
  void updateScrollBars();
  void verticalScrollRequested(int value);
  void ensureCaretVisible();
  // select(); `onShownLine` moves a caret off a line the filter hides.
  void placeSelection(int64_t begin, int64_t end, bool onShownLine);
  int64_t clampToRange(int64_t offset) const;
  double rowHeight() const;
  double cellWidth() const { return cellWidth_; }
  double textLeft() const;
  int gutterWidth() const;
  std::optional<size_t> rowIndexAt(double y) const;
  int64_t offsetAt(const QPointF& point) const;
  int64_t cellOfOffsetInLine(int64_t lineStart, int64_t contentEnd, int64_t offset) const;
  int64_t offsetAtCellInLine(int64_t lineStart, int64_t contentEnd, int64_t cell) const;
  int64_t verticalMove(int64_t from, int64_t rows);
  // The rows' line starts: every line, or the lines the projection shows.
  // Absent past the last row (or where the line index cannot tell yet).
  std::optional<int64_t> nextRowStart(int64_t lineStart) const;
  std::optional<int64_t> previousRowStart(int64_t lineStart) const;
  std::optional<int64_t> shownLineStart(int64_t line) const;
  bool isShown(int64_t lineStart) const;
  // The start of `offset`'s line when shown, else of the nearest shown line.
  int64_t shownLineStartNear(int64_t offset) const;
  // A caret move that left the shown lines goes on to the next (or back to
  // the previous) shown line instead.
  int64_t skipHidden(int64_t offset, bool forward) const;
  // A line past the prefix a filter still computing has evaluated.
  bool beyondEvaluated(int64_t lineStart) const;
  // Applies an edit through the document in an undo group named `action`.
  bool applyEdit(storage::ByteRange range, const std::string& bytes, const char* action, bool typing);
  void reportRefusal(const document::EditRefusal& refusal);
  void stepHistory(bool backward);  // undo or redo
  void updateFontMetrics();
  void drawLineMarks(QPainter& painter) const;

  std::shared_ptr<document::Document> doc_;
  int listenerToken_ = 0;
  std::optional<TextLines> lines_;
  uint8_t terminator_ = '\n';
  std::vector<Row> rows_;
  int64_t topOffset_ = 0;
  int64_t hCell_ = 0;
  int64_t widestCells_ = 0;
  int64_t caret_ = 0;
  int64_t anchor_ = 0;
  std::optional<int64_t> preferredCell_;  // kept across vertical moves
  bool editing_ = false;                  // our own edit is being applied
  bool typingGroupOpen_ = false;
  int64_t typingEnd_ = -1;
  QTimer typingTimer_;
  bool updatingScrollBars_ = false;
  bool selecting_ = false;
  HighlightProvider highlights_;
  std::shared_ptr<bookmarks::CompiledMarkers> markers_;
  size_t markerProblemsTold_ = 0;
  LineMarkProvider lineMarks_;
  LogLineStyler logStyler_;
  double cellWidth_ = 8;
  double ascent_ = 10;
  double lineSpacing_ = 16;
  std::shared_ptr<const search::LineProjection> projection_;
};

}  // namespace quorin::app
