#include "app/logs/LevelColors.h"

#include "app/view/LogLineStyle.h"

namespace quorin::app {

QColor pictureColor(logs::Level level, const QPalette& palette) {
  if (level != logs::Level::none) return LevelColors::word(level, palette);
  const QColor base = palette.color(QPalette::Base);
  const QColor text = palette.color(QPalette::Text);
  const auto mix = [](int a, int b) { return a + (b - a) * 22 / 100; };
  return QColor(mix(base.red(), text.red()), mix(base.green(), text.green()), mix(base.blue(), text.blue()));
}

}  // namespace quorin::app
