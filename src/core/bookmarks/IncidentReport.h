#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "bookmarks/BookmarkSet.h"
#include "bookmarks/Sidecar.h"
#include "document/DocumentTypes.h"

namespace quorin::bookmarks {

// One line as a report shows it.
struct ReportLine {
  int64_t line = 0;  // 0-based; shown 1-based
  std::string time;  // empty when the log has no time for it
  std::string text;  // valid UTF-8, cut at kReportLineBytes with "…"
  bool operator==(const ReportLine&) const = default;
};

struct ReportBookmark {
  ReportLine line;
  std::string note;
  std::vector<ReportLine> before;  // context, nearest last
  std::vector<ReportLine> after;
};

// Everything an incident report holds, gathered from a snapshot.
struct IncidentReport {
  std::string fileName;  // the file's path, or the tab's title
  int64_t fileBytes = 0;
  int64_t lineCount = 0;
  std::string firstTime;  // the log's time span; empty when it has no times
  std::string lastTime;
  std::string notes;                      // the incident notes, Markdown as written
  std::vector<ReportLine> linkedLines;    // lines the notes link to, in the order linked
  std::vector<ReportBookmark> bookmarks;  // ascending lines
  std::vector<SidecarBookmark> lost;
  std::string written;  // when the report was made, e.g. "2026-11-23 22:10 UTC"
};

inline constexpr int64_t kReportLineBytes = 500;

// What the report needs besides the text: the time of a line (empty when
// none; the log index's head above it), from the caller.
struct ReportSources {
  const document::DocumentSnapshot* snapshot = nullptr;
  std::function<std::string(int64_t)> timeOfLine;
  int contextLines = 0;  // lines before and after each bookmark, at most 50
};

// A line of the snapshot for a report: without its line break, invalid
// UTF-8 replaced by U+FFFD, cut at `maxBytes`. Empty past the last line.
std::string reportLineText(const document::DocumentSnapshot& snapshot, int64_t line,
                           int64_t maxBytes = kReportLineBytes);

// The lines the notes link to, written [label](quorin:line/N) with N 1-based.
std::vector<int64_t> linkedLinesOf(std::string_view notes);
// The link the notes panel inserts for a line: "[line 1,234 · 12:00:01.250 · text…](quorin:line/1234)".
std::string lineLink(const ReportLine& line);

IncidentReport gatherReport(const ReportSources& sources, std::string fileName,
                            const std::vector<Bookmark>& bookmarks, std::vector<SidecarBookmark> lost,
                            std::string notes);

// The report as Markdown, and as one self-contained HTML page (everything
// the user wrote escaped; links to lines jump within the page).
std::string reportMarkdown(const IncidentReport& report);
std::string reportHtml(const IncidentReport& report);

}  // namespace quorin::bookmarks
