#include "app/bookmarks/MarkerColors.h"

#include <array>

namespace quorin::app {

QColor markerTint(bookmarks::MarkerColour colour, const QPalette& palette) {
  static constexpr std::array<QRgb, 8> kColours = {0xffd400, 0x3cc84b, 0x28c8e6, 0xff6eb4,
                                                   0xff9628, 0xa06eff, 0x508cff, 0x9a9a9a};
  QColor tint(kColours[static_cast<size_t>(colour)]);
  // Stronger on a dark base, where a faint tint disappears.
  tint.setAlpha(palette.color(QPalette::Base).lightness() < 128 ? 150 : 110);
  return tint;
}

QString markerColourName(bookmarks::MarkerColour colour) {
  const auto name = bookmarks::kMarkerColourNames[static_cast<size_t>(colour)];
  QString text = QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size()));
  text[0] = text[0].toUpper();
  return text;
}

}  // namespace quorin::app
