#pragma once

#include <QString>
#include <functional>

class QWidget;

namespace quorin::app {

class MainWindow;

// The screenshot tour's stop for bookmarks, on the tab the filter's stop
// left open: the filter switched off, every failure bookmarked, two of them
// annotated, the caret a little below one, and the bookmarks panel open;
// `shoot` takes the window.
void tourBookmarks(MainWindow* window, const std::function<void(QWidget*, const QString&)>& shoot);

}  // namespace quorin::app
