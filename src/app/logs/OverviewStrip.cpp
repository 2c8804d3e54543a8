#include "app/logs/OverviewStrip.h"

#include <QMouseEvent>
#include <QPainter>
#include <algorithm>
#include <cmath>

#include "app/logs/LevelColors.h"
#include "app/view/TextView.h"

namespace quorin::app {
namespace {

// Lanes across the strip, left to right: a separator from the scroll bar,
// search matches, bookmarks, warnings, errors.
constexpr int kMatchLeft = 1, kMatchRight = 4;
constexpr int kBookmarkLeft = 5, kBookmarkRight = 8;
constexpr int kWarningLeft = 8, kWarningRight = 12;
constexpr int kErrorLeft = 12, kErrorRight = OverviewStrip::kWidth;

// A row's share of alerts as an opacity, on a logarithmic scale: 1% of a
// row's messages is a pale tint, a quarter of them three quarters of full
// colour, so an incident stands out from a log's usual rate, while any row
// with an alert keeps a visible floor. The same share looks the same in
// every file.
double opacityOf(float share) {
  if (share <= 0) return 0;
  const double scaled = std::log1p(100.0 * std::min(1.0, static_cast<double>(share))) / std::log1p(100.0);
  return 0.15 + 0.85 * scaled;
}

QRgb blend(QRgb under, const QColor& over, double opacity) {
  auto mix = [opacity](int a, int b) { return static_cast<int>(std::lround(a + (b - a) * opacity)); };
  return qRgb(mix(qRed(under), over.red()), mix(qGreen(under), over.green()), mix(qBlue(under), over.blue()));
}

}  // namespace

int64_t overviewRowFirstLine(int64_t totalLines, int rows, int row) {
  if (rows <= 0) return 0;
  // As buildOverview shares them, so that a click lands on the row drawn.
  return static_cast<int64_t>(static_cast<double>(totalLines) * row / rows);
}

std::vector<uint8_t> overviewMatchRows(const std::vector<storage::ByteRange>& matches,
                                       const storage::LineIndexSnapshot& lines, int64_t textLength,
                                       int64_t totalLines, int rows) {
  std::vector<uint8_t> marks(static_cast<size_t>(std::max(rows, 0)), 0);
  if (matches.empty() || rows <= 0 || totalLines <= 0) return marks;
  auto startOf = [&](int64_t line) -> int64_t {
    if (line >= totalLines) return textLength;
    if (const auto start = lines.lineStart(line)) return *start;
    return static_cast<int64_t>(static_cast<double>(textLength) * static_cast<double>(line) /
                                static_cast<double>(totalLines));
  };
  auto match = matches.begin();
  for (int row = 0; row < rows && match != matches.end(); ++row) {
    // A row narrower than a line shows the line it lies on.
    const int64_t first = overviewRowFirstLine(totalLines, rows, row);
    const int64_t end = std::max(overviewRowFirstLine(totalLines, rows, row + 1), first + 1);
    const int64_t rowStart = startOf(first);
    match = std::lower_bound(match, matches.end(), rowStart,
                             [](const storage::ByteRange& m, int64_t offset) { return m.start < offset; });
    if (match != matches.end() && match->start < std::max(startOf(end), rowStart + 1))
      marks[static_cast<size_t>(row)] = 1;
  }
  return marks;
}

std::vector<uint8_t> overviewLineRows(const std::function<std::optional<int64_t>(int64_t after)>& nextAfter,
                                      int64_t totalLines, int rows) {
  std::vector<uint8_t> marks(static_cast<size_t>(std::max(rows, 0)), 0);
  if (rows <= 0 || totalLines <= 0) return marks;
  auto firstOf = [&](int row) { return overviewRowFirstLine(totalLines, rows, row); };
  int64_t after = -1;
  while (const auto line = nextAfter(after)) {
    if (*line <= after || *line >= totalLines) break;
    // The last row starting at or before the line; rows narrower than a
    // line all show it, as they do for matches.
    int row = static_cast<int>(std::clamp<int64_t>(*line * rows / totalLines, 0, rows - 1));
    while (row > 0 && firstOf(row) > *line) --row;
    while (row + 1 < rows && firstOf(row + 1) <= *line) ++row;
    for (int r = row; r >= 0 && (r == row || firstOf(r) == *line); --r) marks[static_cast<size_t>(r)] = 1;
    // The rest of this row's lines need no look.
    after = std::max(*line, (row + 1 < rows ? firstOf(row + 1) : totalLines) - 1);
  }
  return marks;
}

OverviewStrip::OverviewStrip(QWidget* parent) : QWidget(parent) {
  setFixedWidth(kWidth);
  setAttribute(Qt::WA_OpaquePaintEvent);
  setCursor(Qt::PointingHandCursor);
  setToolTip(
      tr("The whole document: errors (red), warnings (amber), bookmarks (blue) and search matches; click to "
         "go there"));
}

void OverviewStrip::setData(std::shared_ptr<const logs::LogIndexData> data, int64_t totalLines) {
  if (data == data_ && totalLines == totalLines_) return;
  data_ = std::move(data);
  totalLines_ = std::max<int64_t>(totalLines, 0);
  invalidate();
}

void OverviewStrip::setMatchRows(MatchRows provider) {
  matchRows_ = std::move(provider);
  invalidate();
}

void OverviewStrip::matchesChanged() { invalidate(); }

void OverviewStrip::setBookmarkRows(MatchRows provider) {
  bookmarkRows_ = std::move(provider);
  invalidate();
}

void OverviewStrip::setMarkerRows(ColourRows provider) {
  markerRows_ = std::move(provider);
  invalidate();
}

void OverviewStrip::setVisibleLines(int64_t firstLine, int64_t lineCount) {
  if (firstLine == visibleFirst_ && lineCount == visibleCount_) return;
  visibleFirst_ = firstLine;
  visibleCount_ = lineCount;
  update();
}

void OverviewStrip::invalidate() {
  image_ = QImage();
  update();
}

int64_t OverviewStrip::lineAt(int y) const {
  if (totalLines_ <= 0) return 0;
  const int rows = std::max(1, height());
  return std::min(overviewRowFirstLine(totalLines_, rows, std::clamp(y, 0, rows - 1)), totalLines_ - 1);
}

void OverviewStrip::render() {
  const int rows = std::max(1, height());
  const QRgb background = palette().color(QPalette::Base).rgb();
  const QColor separator = palette().color(QPalette::Mid);
  const QColor hatch = palette().color(QPalette::Text);
  const QColor errorColor = pictureColor(logs::Level::error, palette());
  const QColor warningColor = pictureColor(logs::Level::warning, palette());
  const QColor matchColor = palette().color(QPalette::Highlight);

  std::vector<logs::OverviewRow> levels;
  if (data_ && totalLines_ > 0) levels = logs::buildOverview(*data_, totalLines_, rows);
  std::vector<uint8_t> marks;
  if (matchRows_ && totalLines_ > 0) marks = matchRows_(totalLines_, rows);
  std::vector<uint8_t> bookmarks;
  if (bookmarkRows_ && totalLines_ > 0) bookmarks = bookmarkRows_(totalLines_, rows);
  std::vector<QRgb> markers;
  if (markerRows_ && totalLines_ > 0) markers = markerRows_(totalLines_, rows);
  const QColor bookmarkColor = TextView::lineMarkColor(false);
  // Rows past what the index has read are hatched until it gets there.
  const int64_t indexedLines = data_ && !data_->complete ? data_->linesIndexed : INT64_MAX;

  image_ = QImage(kWidth, rows, QImage::Format_RGB32);
  for (int y = 0; y < rows; ++y) {
    auto* line = reinterpret_cast<QRgb*>(image_.scanLine(y));
    std::fill(line, line + kWidth, background);
    line[0] = blend(background, separator, 0.6);
    const bool pending = totalLines_ > 0 && overviewRowFirstLine(totalLines_, rows, y) >= indexedLines;
    if (pending) {
      for (int x = 1; x < kWidth; ++x)
        if ((x + y) % 4 == 0) line[x] = blend(background, hatch, 0.18);
    }
    const auto row = static_cast<size_t>(y);
    if (row < levels.size()) {
      if (const double a = opacityOf(levels[row].warnings); a > 0)
        for (int x = kWarningLeft; x < kWarningRight; ++x) line[x] = blend(background, warningColor, a);
      if (const double a = opacityOf(levels[row].errors); a > 0)
        for (int x = kErrorLeft; x < kErrorRight; ++x) line[x] = blend(background, errorColor, a);
    }
    if (row < markers.size() && markers[row])
      for (int x = kMatchLeft; x < kMatchRight; ++x) line[x] = blend(background, QColor(markers[row]), 0.9);
    if (row < marks.size() && marks[row])
      for (int x = kMatchLeft; x < kMatchRight; ++x) line[x] = matchColor.rgb();
    if (row < bookmarks.size() && bookmarks[row])
      for (int x = kBookmarkLeft; x < kBookmarkRight; ++x) line[x] = bookmarkColor.rgb();
  }
}

void OverviewStrip::paintEvent(QPaintEvent*) {
  if (image_.isNull() || image_.height() != std::max(1, height())) render();
  QPainter painter(this);
  painter.drawImage(0, 0, image_);
  if (totalLines_ <= 0 || visibleCount_ <= 0) return;
  // The lines on screen, at least a few pixels tall so that it can be found.
  const int rows = std::max(1, height());
  auto rowOf = [&](int64_t line) {
    return static_cast<int>(static_cast<double>(std::clamp<int64_t>(line, 0, totalLines_)) * rows /
                            static_cast<double>(totalLines_));
  };
  const int top = rowOf(visibleFirst_);
  const int bottom = std::max(rowOf(visibleFirst_ + visibleCount_), top + 6);
  QColor frame = palette().color(QPalette::Text);
  frame.setAlphaF(0.15f);
  painter.fillRect(QRect(1, top, kWidth - 1, bottom - top), frame);
  frame.setAlphaF(0.85f);
  painter.setPen(frame);
  painter.drawRect(QRect(1, top, kWidth - 2, bottom - top - 1));
}

void OverviewStrip::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton || totalLines_ <= 0) return QWidget::mousePressEvent(event);
  lastRequested_ = lineAt(static_cast<int>(event->position().y()));
  emit lineRequested(lastRequested_);
}

void OverviewStrip::mouseMoveEvent(QMouseEvent* event) {
  if (!(event->buttons() & Qt::LeftButton) || totalLines_ <= 0) return QWidget::mouseMoveEvent(event);
  const int64_t line = lineAt(static_cast<int>(event->position().y()));
  if (line == lastRequested_) return;
  lastRequested_ = line;
  emit lineRequested(line);
}

void OverviewStrip::changeEvent(QEvent* event) {
  if (event->type() == QEvent::PaletteChange || event->type() == QEvent::StyleChange) invalidate();
  QWidget::changeEvent(event);
}

void OverviewStrip::resizeEvent(QResizeEvent* event) {
  invalidate();
  QWidget::resizeEvent(event);
}

}  // namespace quorin::app
