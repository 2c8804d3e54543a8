#pragma once

#include <QColor>
#include <QPalette>
#include <QString>

#include "bookmarks/Markers.h"

namespace quorin::app {

// A marker's colour as a translucent tint that reads on the palette's base
// (light or dark), and its name as a menu shows it.
QColor markerTint(bookmarks::MarkerColour colour, const QPalette& palette);
QString markerColourName(bookmarks::MarkerColour colour);

}  // namespace quorin::app
