#pragma once

#include <QAbstractScrollArea>
#include <QString>
#include <QStringList>

namespace quorin::app {

// A read-only, custom-painted view of a list of lines in a fixed-pitch font,
// with line numbers in a gutter. It scrolls by whole lines vertically and by
// pixels horizontally, and paints only the lines in sight, so a long list
// costs nothing per frame. Without lines it shows a hint instead.
class FirstScreenView : public QAbstractScrollArea {
  Q_OBJECT

 public:
  explicit FirstScreenView(QWidget* parent = nullptr);

  // Lines are taken as they are in the file; tabs and control characters are
  // made visible at paint time.
  void setLines(QStringList lines);
  void clear();
  void setHint(const QString& hint);

  bool hasLines() const { return !lines_.isEmpty(); }
  qsizetype lineCount() const { return lines_.size(); }
  const QStringList& lines() const { return lines_; }
  int firstVisibleLine() const;

  // Expands tabs and swaps control characters for their visible symbols.
  static QString displayText(const QString& line);

 protected:
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void changeEvent(QEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  int lineHeight() const;
  int gutterWidth() const;
  int visibleLineCount() const;  // lines that fit whole
  void updateMetrics();
  void updateScrollBars();

  QStringList lines_;  // already in display form
  QString hint_;
  int longestLineWidth_ = 0;
};

}  // namespace quorin::app
