#pragma once

#include <cstdint>
#include <expected>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include "compare/Comparison.h"
#include "persistence/FileIo.h"

namespace quorin::compare {

inline constexpr std::string_view kDefaultReportFileName = "compare-report.txt";
inline constexpr std::string_view kReportFirstLine = "Quorin compare report";
// Past this a report stops with a marker: ten megabytes is more than anyone
// reads, and a capped comparison of two large files would otherwise write
// hundreds of them.
inline constexpr int64_t kReportByteLimit = 10'000'000;
// A longer line is shown cut, with "…", so one huge line cannot fill a report.
inline constexpr int64_t kShownLineBytes = 4096;

// Line `line` of a side (counted as the comparison counts), without its line
// break, cut to at most maxBytes on a character boundary with "…" after a
// cut. Empty for a line the side does not have. Any thread.
std::string sideLineText(const CompareSide& side, int64_t line, int64_t maxBytes = kShownLineBytes);

// The change's header in the style of diff's normal output, 1-based:
// "3,5c3,4", "7a8,9", "10d9".
std::string changeHeader(const DiffChange& change);

// Receives output one whole line (with its "\n") at a time; false stops it.
using LineSink = std::function<bool(std::string_view)>;

// Every change as its header, the left lines ("< "), "---" when both sides
// have lines, and the right lines ("> "). Stops when the sink says so.
void writeChanges(const CompareSide& left, const CompareSide& right, const DiffResult& diff,
                  const LineSink& sink);

// "No differences", or "2 changes: 3 lines removed, 4 lines added".
std::string summaryText(const CompareOutcome& outcome);

// The plain-text report: its first line, the two sides, the options, the
// notices, the summary and the changes. Once it would pass `byteLimit`, it
// ends with "[report truncated at " + the limit + "]".
std::string buildReport(const CompareRequest& request, const CompareOutcome& outcome,
                        int64_t byteLimit = kReportByteLimit);

// Why a report could not be saved; the alert shows title() over describe().
struct ReportSaveError {
  std::string operation;  // the system call that failed
  std::string path;
  int error = 0;
  static constexpr std::string_view title() { return "Couldn't save the report"; }
  std::string describe() const;
};

// Writes `text` to a new file beside `path` and renames it over `path`, so
// an existing report is replaced whole or not at all.
std::expected<void, ReportSaveError> saveReport(const std::filesystem::path& path, std::string_view text,
                                                persistence::FileIo& io = persistence::FileIo::system());

}  // namespace quorin::compare
