#pragma once

#include <QColor>
#include <QPalette>

#include "logs/Severity.h"

namespace quorin::app {

// The colour of a level in the overview strip and the timeline: the text
// view's level colours (LevelColors::word), so that a red bar means what a
// red word means, and for messages without a level a grey between the base
// and the text that stays in the background.
QColor pictureColor(logs::Level level, const QPalette& palette);

}  // namespace quorin::app
