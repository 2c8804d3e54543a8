#include "app/logs/LevelColors.h"

namespace quorin::app {

bool isDarkPalette(const QPalette& palette) {
  return palette.color(QPalette::Base).lightness() < palette.color(QPalette::Text).lightness();
}

QColor levelColor(logs::Level level, bool dark) {
  using logs::Level;
  switch (level) {
    case Level::fatal: return dark ? QColor(0xff, 0x5c, 0xa8) : QColor(0xad, 0x14, 0x57);
    case Level::critical: return dark ? QColor(0xff, 0x45, 0x45) : QColor(0xa3, 0x00, 0x00);
    case Level::error: return dark ? QColor(0xff, 0x6b, 0x5e) : QColor(0xd3, 0x2f, 0x2f);
    case Level::warning: return dark ? QColor(0xff, 0xc1, 0x4d) : QColor(0xe0, 0x8a, 0x00);
    case Level::notice: return dark ? QColor(0x5e, 0xc8, 0xd8) : QColor(0x00, 0x83, 0x8f);
    case Level::info: return dark ? QColor(0x6e, 0xa8, 0xfe) : QColor(0x3d, 0x7a, 0xd6);
    case Level::debug: return dark ? QColor(0x9a, 0x9a, 0xb0) : QColor(0x80, 0x80, 0x98);
    case Level::trace: return dark ? QColor(0x70, 0x70, 0x80) : QColor(0xb0, 0xb0, 0xbc);
    case Level::none: break;
  }
  return dark ? QColor(0x58, 0x5c, 0x64) : QColor(0xc8, 0xcc, 0xd2);
}

}  // namespace quorin::app
