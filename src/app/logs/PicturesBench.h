#pragma once

#include <QString>
#include <functional>

class QWidget;

namespace quorin::app {

class MainWindow;

// The "pictures" benchmark suite: redraw times of the overview strip and
// the timeline over the window's current tab, once its log index is done.
// Each picture is timed both ways it redraws: with its rows or bars computed
// again (new log data, new matches) and from its cache (the lines on screen
// moved, the mouse hovers). Figures go to `figure` as (name, value, unit).
void benchPictures(MainWindow* window, const std::function<void(const char*, double, const char*)>& figure);

// The screenshot tour's stop for the pictures: a generated service log with
// an incident (a burst of errors with stack traces) opened in `window` with
// the timeline shown, a search marked on the strip and a time range
// selected; `shoot` takes the window in the light palette and again in a
// dark one. The log is written into `directory`.
void tourLogPictures(MainWindow* window, const QString& directory,
                     const std::function<void(QWidget*, const QString&)>& shoot);

}  // namespace quorin::app
