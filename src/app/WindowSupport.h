#pragma once

#include <QList>
#include <QString>
#include <cstdint>

#include "jobs/JobRegistry.h"

namespace quorin::app {

class MainWindow;

// What the main window's parts (tabs, menus, session) share.

// The path by which a file is compared with open ones (symbolic links resolved).
QString canonicalPath(const QString& path);
// Files above this size ask for an open mode first ("QuorinFastOpenThresholdBytes").
int64_t fastOpenThreshold();
// Long jobs of every window (CSV index builds), listed for cancellation.
jobs::JobRegistry& applicationJobs();
QList<MainWindow*> allWindows();

// Whether saves may patch small same-length edits into the file in place
// ("QuorinInPlaceSaveEnabled", on unless turned off).
bool inPlaceSavePreference();
void setInPlaceSavePreference(bool enabled);

// Runs the event loop for `ms` milliseconds (the benchmarks and the screenshot tour wait on background work).
void pumpEvents(int ms);

}  // namespace quorin::app
