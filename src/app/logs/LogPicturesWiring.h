#pragma once

#include <cstdint>

namespace quorin::app {

class DocumentTab;
class OverviewStrip;

// Feeds a tab's overview strip: the tab's log data and line count as they
// grow, the find bar's matches while it is open, the lines on screen; a
// click or drag on the strip puts the caret on that line.
void connectOverviewStrip(OverviewStrip* strip, DocumentTab* tab);

// Puts the caret on the first line at or after `micros` (a time in the log
// index's terms, as the timeline gives it), centred; says so in the status
// bar when every time is earlier.
void goToLogTime(DocumentTab* tab, int64_t micros);

// Puts the caret at the start of 0-based `line`, centred.
void goToLine(DocumentTab* tab, int64_t line);

}  // namespace quorin::app
