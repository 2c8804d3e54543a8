#pragma once

#include <QColor>
#include <QPalette>

#include "logs/Severity.h"

namespace quorin::app {

// Whether a palette is dark (light text on a dark base): the pictures pick
// brighter, less saturated colours there so that they read on black.
bool isDarkPalette(const QPalette& palette);

// The colour of a level in the overview strip and the timeline: reds for
// error and above, amber for warning, blue for notice and info, greys
// below; `none` a neutral grey. Chosen to stay apart on light and dark bases.
QColor levelColor(logs::Level level, bool dark);

}  // namespace quorin::app
