// The text view's painting.
#include <QPainter>
#include <algorithm>

#include "app/bookmarks/MarkerColors.h"
#include "app/filter/FilterTexts.h"
#include "app/view/TextView.h"
#include "filter/FilterProjection.h"

namespace quorin::app {
namespace {

// Bytes read on either side of a long line's laid-out piece for markers.
constexpr int64_t kMarkerMarginBytes = 256;

QColor blend(const QColor& a, const QColor& b, double amountOfB) {
  return QColor::fromRgbF(static_cast<float>(a.redF() + (b.redF() - a.redF()) * amountOfB),
                          static_cast<float>(a.greenF() + (b.greenF() - a.greenF()) * amountOfB),
                          static_cast<float>(a.blueF() + (b.blueF() - a.blueF()) * amountOfB));
}

// A stretch of a row drawn in a colour of its own (a timestamp, a level word).
struct ColoredSpan {
  storage::ByteRange bytes;
  QColor color;
};

// Draws a laid-out row, its coloured spans in their colours and the rest in `text`.
void drawRow(QPainter& painter, const RowLayout& layout, const std::vector<ColoredSpan>& spans,
             const QColor& text, double x0, double cellWidth, int64_t hCell, double baseline) {
  const size_t characters = layout.byteAt.size() - 1;
  auto characterAt = [&](int64_t offset) {
    return static_cast<size_t>(std::lower_bound(layout.byteAt.begin(), layout.byteAt.end() - 1, offset) -
                               layout.byteAt.begin());
  };
  auto draw = [&](size_t from, size_t to, const QColor& color) {
    if (from >= to) return;
    painter.setPen(color);
    const int32_t first = layout.charAt[from];
    painter.drawText(QPointF(x0 + static_cast<double>(layout.cellAt[from] - hCell) * cellWidth, baseline),
                     layout.display.mid(first, layout.charAt[to] - first));
  };
  size_t done = 0;
  for (const ColoredSpan& span : spans) {
    const size_t from = std::max(done, characterAt(span.bytes.start));
    const size_t to = std::max(from, characterAt(span.bytes.end));
    draw(done, from, text);
    draw(from, to, span.color);
    done = to;
  }
  draw(done, characters, text);
}

}  // namespace

void TextView::setLogData(std::shared_ptr<const logs::LogIndexData> data, logs::SeverityRules rules) {
  const bool wasActive = logStyler_.active();
  logStyler_.setLog(std::move(data), std::move(rules));
  if (wasActive || logStyler_.active()) viewport()->update();
}

void TextView::setMarkers(std::shared_ptr<bookmarks::CompiledMarkers> markers) {
  markers_ = std::move(markers);
  markerProblemsTold_ = 0;
  viewport()->update();
}

void TextView::setLineMarkProvider(LineMarkProvider provider) {
  lineMarks_ = std::move(provider);
  viewport()->update();
}

QColor TextView::lineMarkColor(bool noted) { return noted ? QColor(224, 142, 22) : QColor(52, 112, 220); }

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
  std::vector<LineLogStyle> logStyles;
  if (logStyler_.active()) {
    std::vector<VisibleLine> visible;
    visible.reserve(rows_.size());
    for (const Row& row : rows_) visible.push_back({row.lineStart, row.contentEnd, row.lineNumber});
    logStyles = logStyler_.style(*lines_, visible);
  }
  const QColor timestampColor = LogLineColors::timestamp(pal);

  painter.setClipRect(QRectF(left - 2, 0, width, viewport()->height()));
  std::vector<ColoredSpan> spans;
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
    spans.clear();
    if (i < logStyles.size()) {
      const LineLogStyle& style = logStyles[i];
      if (style.level >= logs::Level::warning)
        painter.fillRect(QRectF(left - 2, top, width, rowHeight()),
                         LogLineColors::lineTint(style.level, pal));
      if (style.timestamp.length() > 0) spans.push_back({style.timestamp, timestampColor});
      if (style.levelWord.length() > 0)
        spans.push_back({style.levelWord, LogLineColors::word(style.level, pal)});
    }
    auto tint = [&](int64_t from, int64_t to, const QColor& color, bool throughLineEnd) {
      const int64_t a = std::max(from, row.lineStart);
      const int64_t b = std::min(to, row.contentEnd);
      if (a > b || (a == b && !throughLineEnd)) return;
      double right = xOf(b);
      if (throughLineEnd && to > row.contentEnd) right += cellWidth_ * 0.6;  // the selected line break
      painter.fillRect(QRectF(xOf(a), top, std::max(1.0, right - xOf(a)), rowHeight()), color);
    };
    if (markers_ && !markers_->empty() && layout.byteAt.size() > 1) {
      // Only the laid-out piece of a long line, and a little around it for
      // matches that cross its edges: a gigabyte line costs what it shows.
      const int64_t from = std::max(row.lineStart, layout.firstByte - kMarkerMarginBytes);
      const int64_t to = std::min(row.contentEnd, layout.byteAt.back() + kMarkerMarginBytes);
      const std::string bytes = lines_->text().readBytes({from, to}).value_or("");
      for (const auto& span : markers_->spans(bytes, row.lineNumber.value_or(0))) {
        tint(from + span.begin, from + span.end, markerTint(span.colour, pal), false);
      }
    }
    for (const auto& mark : marks) tint(mark.start, mark.end, markColor, false);
    if (selectionStart != selectionEnd) tint(selectionStart, selectionEnd, selectionColor, true);
    drawRow(painter, layout, spans, text, left, cellWidth_, hCell_, top + ascent_ + 1);
    if (row.lineStart == caretLine && hasFocus() && caret_ >= row.lineStart && caret_ <= row.contentEnd) {
      painter.fillRect(QRectF(xOf(caret_) - 1, top + 1, 2, rowHeight() - 2), text);
    }
  }
  // A filter still computing has not decided about the lines past its
  // prefix: where they would be, say how far it has got.
  if (const auto* filter = dynamic_cast<const filter::FilterProjection*>(projection_.get());
      filter && !filter->isComplete()) {
    const double top = static_cast<double>(rows_.size()) * rowHeight() + rowHeight() * 0.5;
    if (top < viewport()->height()) {
      painter.setPen(blend(base, text, 0.5));
      painter.drawText(QRectF(left, top, width - left, rowHeight() * 1.5), Qt::AlignLeft | Qt::AlignVCenter,
                       FilterTexts::progress(filter->linesEvaluated(), lines_->estimatedLineCount()));
    }
  }
  painter.setClipping(false);
  if (markers_) {
    // A rule switched off while drawing is told once, after this paint.
    size_t told = 0;
    for (const auto& problem : markers_->problems()) {
      if (!problem || !problem->starts_with("Marker ") || told++ < markerProblemsTold_) continue;
      QMetaObject::invokeMethod(
          this, [this, text = QString::fromStdString(*problem)] { emit statusMessage(text); },
          Qt::QueuedConnection);
    }
    markerProblemsTold_ = std::max(markerProblemsTold_, told);
  }
  // The gutter: line numbers where the index knows them.
  const QColor numberColor = blend(base, text, 0.45);
  // Where a filter skipped lines: a dotted rule along the top of the row
  // below them, across the gutter and the text, and "⋯" at the gutter's
  // left edge (the jump in the line numbers says how many).
  QPen gapPen(blend(base, text, 0.35), 1, Qt::DotLine);
  for (size_t i = 0; i < rows_.size(); ++i) {
    if (rows_[i].hiddenBefore <= 0) continue;
    painter.setPen(gapPen);
    const double y = static_cast<double>(i) * rowHeight() + 0.5;
    painter.drawLine(QPointF(0, y), QPointF(width, y));
    painter.setPen(numberColor);
    painter.drawText(QRectF(2, y, kGutterPadding, rowHeight()), Qt::AlignLeft | Qt::AlignTop,
                     QStringLiteral("⋯"));
  }
  drawLineMarks(painter);
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

void TextView::drawLineMarks(QPainter& painter) const {
  if (!lineMarks_) return;
  std::optional<int64_t> first, last;
  for (const Row& row : rows_) {
    if (!row.lineNumber) continue;
    if (!first) first = row.lineNumber;
    last = row.lineNumber;
  }
  if (!first) return;
  const std::vector<LineMark> marks = lineMarks_(*first, *last);
  if (marks.empty()) return;
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(Qt::NoPen);
  for (size_t i = 0; i < rows_.size(); ++i) {
    if (!rows_[i].lineNumber) continue;
    const auto mark = std::lower_bound(marks.begin(), marks.end(), *rows_[i].lineNumber,
                                       [](const LineMark& m, int64_t line) { return m.line < line; });
    if (mark == marks.end() || mark->line != *rows_[i].lineNumber) continue;
    const double top = static_cast<double>(i) * rowHeight();
    // A bar; a bookmark with a note is wider, in another colour, with a rule across it like a line of text.
    const QRectF bar(2, top + 2, mark->noted ? 7 : 4, rowHeight() - 4);
    painter.setBrush(lineMarkColor(mark->noted));
    painter.drawRoundedRect(bar, 1.5, 1.5);
    if (mark->noted) {
      painter.setBrush(QColor(255, 255, 255, 200));
      painter.drawRect(QRectF(bar.left() + 1.5, bar.center().y() - 0.5, bar.width() - 3, 1));
    }
  }
  painter.restore();
}

}  // namespace quorin::app
