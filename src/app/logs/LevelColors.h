#pragma once

#include <QColor>
#include <QPalette>

#include "logs/Severity.h"

namespace quorin::app {

// The colour of a level in the overview strip and the timeline: the text
// view's level colours (LogLineColors::word) from notice up, so that a red bar
// means what a red word means; debug, trace and messages without a level in
// lighter greys between the base and the text.
QColor pictureColor(logs::Level level, const QPalette& palette);

}  // namespace quorin::app
