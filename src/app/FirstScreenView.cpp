#include "FirstScreenView.h"

#include <QApplication>
#include <QFontDatabase>
#include <QKeyEvent>
#include <QPainter>
#include <QScrollBar>
#include <algorithm>

namespace quorin::app {
namespace {

constexpr int kTabWidth = 4;
// Painting shapes a whole line; past this many characters the rest would be
// off screen anyway and only cost time. The real text view lifts the limit.
constexpr qsizetype kMaxDisplayChars = 4096;
constexpr int kGutterPadding = 12;  // either side of the numbers
constexpr int kTextMargin = 8;      // between the gutter and the text
constexpr int kExtraLeading = 3;    // air between lines, which reads better than the font's own

QColor blend(const QColor& a, const QColor& b, double amountOfB) {
  return QColor::fromRgbF(static_cast<float>(a.redF() + (b.redF() - a.redF()) * amountOfB),
                          static_cast<float>(a.greenF() + (b.greenF() - a.greenF()) * amountOfB),
                          static_cast<float>(a.blueF() + (b.blueF() - a.blueF()) * amountOfB));
}

}  // namespace

FirstScreenView::FirstScreenView(QWidget* parent) : QAbstractScrollArea(parent) {
  setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
  setFrameShape(QFrame::NoFrame);
  setFocusPolicy(Qt::StrongFocus);
  viewport()->setBackgroundRole(QPalette::Base);
  viewport()->setAutoFillBackground(true);
  updateMetrics();
}

QString FirstScreenView::displayText(const QString& line) {
  QString out;
  out.reserve(std::min(line.size(), kMaxDisplayChars));
  for (const QChar c : line) {
    if (out.size() >= kMaxDisplayChars) {
      // Never leave half a surrogate pair behind.
      if (out.back().isHighSurrogate()) out.chop(1);
      out += QChar(0x2026);
      break;
    }
    const char16_t u = c.unicode();
    if (u == '\t') {
      out += QString(kTabWidth - out.size() % kTabWidth, QLatin1Char(' '));
    } else if (u < 0x20) {
      out += QChar(0x2400 + u);  // the Control Pictures block: ␀ … ␟
    } else if (u == 0x7F) {
      out += QChar(0x2421);
    } else {
      out += c;
    }
  }
  return out;
}

void FirstScreenView::setLines(QStringList lines) {
  for (QString& line : lines) line = displayText(line);
  lines_ = std::move(lines);
  verticalScrollBar()->setValue(0);
  horizontalScrollBar()->setValue(0);
  updateMetrics();
}

void FirstScreenView::clear() { setLines({}); }

void FirstScreenView::setHint(const QString& hint) {
  hint_ = hint;
  viewport()->update();
}

int FirstScreenView::firstVisibleLine() const { return verticalScrollBar()->value(); }

int FirstScreenView::lineHeight() const { return fontMetrics().height() + kExtraLeading; }

int FirstScreenView::gutterWidth() const {
  const int digits = static_cast<int>(QString::number(std::max<qsizetype>(lines_.size(), 1)).size());
  return fontMetrics().horizontalAdvance(QLatin1Char('9')) * std::max(digits, 3) + 2 * kGutterPadding;
}

int FirstScreenView::visibleLineCount() const { return std::max(1, viewport()->height() / lineHeight()); }

void FirstScreenView::updateMetrics() {
  // Fixed pitch: the line with the most characters is (nearly always) the
  // widest, and measuring one line is far cheaper than measuring them all.
  const auto longest = std::ranges::max_element(lines_, {}, [](const QString& line) { return line.size(); });
  longestLineWidth_ = longest == lines_.end() ? 0 : fontMetrics().horizontalAdvance(*longest);
  updateScrollBars();
  viewport()->update();
}

void FirstScreenView::updateScrollBars() {
  const int pageLines = visibleLineCount();
  QScrollBar* vertical = verticalScrollBar();
  // Scrolling stops with the last line at the bottom, not at the top.
  vertical->setRange(0, std::max<int>(0, static_cast<int>(lines_.size()) - pageLines));
  vertical->setPageStep(pageLines);
  vertical->setSingleStep(1);

  const int textWidth = std::max(0, viewport()->width() - gutterWidth() - kTextMargin);
  QScrollBar* horizontal = horizontalScrollBar();
  horizontal->setRange(0, std::max(0, longestLineWidth_ + kTextMargin - textWidth));
  horizontal->setPageStep(textWidth);
  horizontal->setSingleStep(fontMetrics().horizontalAdvance(QLatin1Char('9')) * 2);
}

void FirstScreenView::resizeEvent(QResizeEvent* event) {
  QAbstractScrollArea::resizeEvent(event);
  updateScrollBars();
}

void FirstScreenView::changeEvent(QEvent* event) {
  QAbstractScrollArea::changeEvent(event);
  if (event->type() == QEvent::FontChange) updateMetrics();
}

void FirstScreenView::keyPressEvent(QKeyEvent* event) {
  if (event->matches(QKeySequence::MoveToStartOfDocument)) {
    verticalScrollBar()->setValue(0);
  } else if (event->matches(QKeySequence::MoveToEndOfDocument)) {
    verticalScrollBar()->setValue(verticalScrollBar()->maximum());
  } else {
    QAbstractScrollArea::keyPressEvent(event);
  }
}

void FirstScreenView::paintEvent(QPaintEvent*) {
  QPainter painter(viewport());
  const QPalette& pal = palette();
  const QColor base = pal.color(QPalette::Base);
  const QColor text = pal.color(QPalette::Text);
  const QRect area = viewport()->rect();

  if (lines_.isEmpty()) {
    painter.setPen(blend(base, text, 0.5));
    painter.setFont(QApplication::font());  // the hint is prose, not file content
    painter.drawText(area, Qt::AlignCenter | Qt::TextWordWrap, hint_);
    return;
  }

  const int gutter = gutterWidth();
  const int height = lineHeight();
  const QFontMetrics metrics = fontMetrics();
  const int ascentOffset = kExtraLeading / 2 + metrics.ascent();

  painter.fillRect(QRect(0, 0, gutter, area.height()), blend(base, text, 0.035));
  painter.setPen(blend(base, text, 0.12));
  painter.drawLine(gutter - 1, 0, gutter - 1, area.height());

  const int first = firstVisibleLine();
  const int last = std::min<int>(static_cast<int>(lines_.size()), first + area.height() / height + 2);
  painter.setPen(blend(base, text, 0.42));
  for (int i = first; i < last; ++i) {
    const QString number = QString::number(i + 1);
    painter.drawText(gutter - kGutterPadding - metrics.horizontalAdvance(number),
                     (i - first) * height + ascentOffset, number);
  }

  painter.setClipRect(QRect(gutter, 0, area.width() - gutter, area.height()));
  painter.setPen(text);
  const int x = gutter + kTextMargin - horizontalScrollBar()->value();
  for (int i = first; i < last; ++i) painter.drawText(x, (i - first) * height + ascentOffset, lines_[i]);
}

}  // namespace quorin::app
