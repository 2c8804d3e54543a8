#pragma once

#include <QString>
#include <optional>
#include <string>

#include "bookmarks/IncidentReport.h"

namespace quorin::app {

class DocumentTab;

// The time of `line` as the log writes it (its message's head line); empty
// when the document has no timestamps or the log index has not reached it.
std::string lineTimeText(const DocumentTab& tab, int64_t line);

// The incident report of a tab: its file, time span, notes, bookmarks with
// `contextLines` around each. Reads lines on the GUI thread: a report holds
// at most a few hundred thousand short reads.
bookmarks::IncidentReport incidentReportOf(const DocumentTab& tab, int contextLines);

// Writes the report to `path` atomically (HTML when it ends in .html or .htm,
// Markdown otherwise); the reason when it could not be written.
std::optional<QString> saveIncidentReport(const DocumentTab& tab, const QString& path, int contextLines);

}  // namespace quorin::app
