#pragma once

#include <QImage>
#include <QWidget>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "logs/LogPictures.h"
#include "storage/ByteRange.h"
#include "storage/LineIndexSnapshot.h"

namespace quorin::app {

// The first line of pixel row `row` when `rows` rows share `totalLines`
// lines evenly (the overview's mapping both ways: drawing and clicking).
int64_t overviewRowFirstLine(int64_t totalLines, int rows, int row);

// Which of `rows` pixel rows hold the start of a search match. `matches`
// are in document order; a row's byte span comes from the line index where
// it knows the row's first lines, and pro rata over the text's length where
// it does not yet. Time in proportion to the rows, not the matches.
std::vector<uint8_t> overviewMatchRows(const std::vector<storage::ByteRange>& matches,
                                       const storage::LineIndexSnapshot& lines, int64_t textLength,
                                       int64_t totalLines, int rows);

// Which of `rows` pixel rows hold a marked line (a bookmark), the marked
// lines given by `nextAfter` (the first marked line after a line, none past
// the last). Time in proportion to the rows holding marks, each a lookup,
// however many lines are marked.
std::vector<uint8_t> overviewLineRows(const std::function<std::optional<int64_t>(int64_t after)>& nextAfter,
                                      int64_t totalLines, int rows);

// A narrow strip beside the text view's scroll bar showing the whole
// document, one pixel row for an even share of its lines: the density of
// messages at error and above and at warning (from the log index, filling in
// while it builds; the part not indexed yet is hatched), the rows holding a
// search match, the rows holding a bookmark, and the lines on screen as a frame. Clicking or dragging asks
// for the line under the mouse. A filtered view keeps the whole document
// here (where the errors are does not change with what is shown): the frame
// spans the document lines from the first to the last row on screen, and a
// click on a hidden line lands on the nearest shown one.
//
// Redraws are cheap: the rows are computed once per data, height or match
// change and kept as an image; a paint draws that image and the frame.
// Thread-safety: GUI thread only.
class OverviewStrip : public QWidget {
  Q_OBJECT

 public:
  static constexpr int kWidth = 17;

  explicit OverviewStrip(QWidget* parent = nullptr);

  // The log index's data (null: none yet) and the document's line count
  // (the line index's estimate while it builds).
  void setData(std::shared_ptr<const logs::LogIndexData> data, int64_t totalLines);
  int64_t totalLines() const { return totalLines_; }

  // Where the search matches come from: for `rows` rows over `totalLines`
  // lines, whether each holds a match (empty when there is no search).
  using MatchRows = std::function<std::vector<uint8_t>(int64_t totalLines, int rows)>;
  void setMatchRows(MatchRows provider);
  // The provider's answers changed (a new count, an edit, the bar closed).
  void matchesChanged();
  // Where the bookmarks are, as rows like the matches.
  void setBookmarkRows(MatchRows provider);
  void bookmarksChanged() { invalidate(); }
  // Where the markers match: each row's colour, 0 for none. Drawn in the
  // matches' lane, under the search's own matches.
  using ColourRows = std::function<std::vector<QRgb>(int64_t totalLines, int rows)>;
  void setMarkerRows(ColourRows provider);
  void markersChanged() { invalidate(); }

  // The lines on screen, drawn as a frame over the strip.
  void setVisibleLines(int64_t firstLine, int64_t lineCount);

  // The first line of the pixel row at `y`.
  int64_t lineAt(int y) const;
  QSize sizeHint() const override { return {kWidth, 64}; }

 signals:
  // A click or drag over the strip: show this 0-based line.
  void lineRequested(qint64 line);

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void changeEvent(QEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;

 private:
  void invalidate();
  void render();

  std::shared_ptr<const logs::LogIndexData> data_;
  int64_t totalLines_ = 0;
  MatchRows matchRows_;
  MatchRows bookmarkRows_;
  ColourRows markerRows_;
  int64_t visibleFirst_ = 0;
  int64_t visibleCount_ = 0;
  int64_t lastRequested_ = -1;  // a drag asks once per line
  QImage image_;                // the rows as drawn; null when stale
};

}  // namespace quorin::app
