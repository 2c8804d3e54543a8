#pragma once

#include <QString>
#include <functional>

class QWidget;

namespace quorin::app {

class MainWindow;

// The screenshot tour's stop for the filter: a generated service log opened
// in `window` (written into `directory`), filtered by the bar to failures
// and retries with context, one worker excluded and one broken regular
// expression marked; `shoot` takes the window.
void tourFilter(MainWindow* window, const QString& directory,
                const std::function<void(QWidget*, const QString&)>& shoot);

}  // namespace quorin::app
