#include "app/logs/LevelColors.h"

#include "app/view/LogLineStyle.h"

namespace quorin::app {
namespace {

QColor between(const QColor& from, const QColor& to, int percent) {
  const auto mix = [percent](int a, int b) { return a + (b - a) * percent / 100; };
  return QColor(mix(from.red(), to.red()), mix(from.green(), to.green()), mix(from.blue(), to.blue()));
}

}  // namespace

QColor pictureColor(logs::Level level, const QPalette& palette) {
  const QColor base = palette.color(QPalette::Base);
  const QColor text = palette.color(QPalette::Text);
  // The quiet levels are most of a log: as areas they stay in the
  // background, lighter than the text view's words.
  switch (level) {
    case logs::Level::debug: return between(base, text, 38);
    case logs::Level::trace: return between(base, text, 28);
    case logs::Level::none: return between(base, text, 20);
    default: return LogLineColors::word(level, palette);
  }
}

}  // namespace quorin::app
