#pragma once

#include <QString>
#include <functional>

class QWidget;

namespace quorin::app {

class MainWindow;

// The screenshot tour's stop for annotations: a service log with two
// markers, a bookmark and incident notes that link to lines; `shoot` takes
// the window.
void tourAnnotate(MainWindow* window, const QString& directory,
                  const std::function<void(QWidget*, const QString&)>& shoot);

}  // namespace quorin::app
