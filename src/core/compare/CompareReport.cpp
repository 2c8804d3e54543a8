#include "compare/CompareReport.h"

#include "base/ByteCount.h"
#include "base/Errno.h"
#include "persistence/SmallFile.h"

namespace quorin::compare {
namespace {

std::string lineRange(int64_t start, int64_t count) {
  // 1-based; an empty range names the line before it, as diff does.
  if (count <= 1) return std::to_string(count == 0 ? start : start + 1);
  return std::to_string(start + 1) + "," + std::to_string(start + count);
}

std::string counted(int64_t count, std::string_view singular, std::string_view plural) {
  return std::to_string(count) + " " + std::string(count == 1 ? singular : plural);
}

std::string onOff(bool flag) { return flag ? "on" : "off"; }

bool isContinuationByte(char c) { return (static_cast<uint8_t>(c) & 0xC0) == 0x80; }

bool writeSideLines(const CompareSide& side, int64_t start, int64_t count, std::string_view marker,
                    const LineSink& sink) {
  std::string line;
  for (int64_t i = start; i < start + count; ++i) {
    line.assign(marker);
    line += sideLineText(side, i);
    line += '\n';
    if (!sink(line)) return false;
  }
  return true;
}

}  // namespace

std::string sideLineText(const CompareSide& side, int64_t line, int64_t maxBytes) {
  const auto& lines = side.snapshot.lines;
  const auto start = lines.lineStart(line);
  if (!start) return {};
  const int64_t end =
      std::min(lines.lineStart(line + 1).value_or(side.range.end), side.snapshot.text.totalLength());
  // Read a little past the cut so trailing line-break bytes can be told from text.
  std::string text =
      side.snapshot.text.readBytes({*start, std::min(end, *start + maxBytes + 2)}).value_or("");
  const bool reachedEnd = *start + static_cast<int64_t>(text.size()) >= end;
  if (reachedEnd) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  }
  if (static_cast<int64_t>(text.size()) > maxBytes || !reachedEnd) {
    size_t cut = static_cast<size_t>(std::min<int64_t>(maxBytes, static_cast<int64_t>(text.size())));
    while (cut > 0 && isContinuationByte(text[cut])) --cut;
    text.resize(cut);
    text += "…";
  }
  return text;
}

std::string changeHeader(const DiffChange& change) {
  const char kind = change.leftCount == 0 ? 'a' : change.rightCount == 0 ? 'd' : 'c';
  return lineRange(change.leftStart, change.leftCount) + kind +
         lineRange(change.rightStart, change.rightCount);
}

void writeChanges(const CompareSide& left, const CompareSide& right, const DiffResult& diff,
                  const LineSink& sink) {
  for (const DiffChange& change : diff.changes) {
    if (!sink(changeHeader(change) + "\n")) return;
    if (!writeSideLines(left, change.leftStart, change.leftCount, "< ", sink)) return;
    if (change.leftCount > 0 && change.rightCount > 0 && !sink("---\n")) return;
    if (!writeSideLines(right, change.rightStart, change.rightCount, "> ", sink)) return;
  }
}

std::string summaryText(const CompareOutcome& outcome) {
  if (outcome.cancelled) return "Comparison cancelled";
  if (outcome.diff.changes.empty()) return "No differences";
  int64_t removed = 0;
  int64_t added = 0;
  for (const DiffChange& change : outcome.diff.changes) {
    removed += change.leftCount;
    added += change.rightCount;
  }
  return counted(static_cast<int64_t>(outcome.diff.changes.size()), "change", "changes") + ": " +
         counted(removed, "line", "lines") + " removed, " + counted(added, "line", "lines") + " added";
}

std::string buildReport(const CompareRequest& request, const CompareOutcome& outcome, int64_t byteLimit) {
  const std::string marker = "[report truncated at " + base::formatByteCount(byteLimit) + "]\n";
  std::string report;
  bool truncated = false;
  // The marker's room is kept free, so a truncated report stays within the limit.
  const LineSink append = [&](std::string_view line) {
    if (static_cast<int64_t>(report.size() + line.size() + marker.size()) > byteLimit) {
      truncated = true;
      return false;
    }
    report += line;
    return true;
  };
  const auto side = [&](std::string_view label, const CompareSide& s, int64_t lines) {
    return std::string(label) + s.displayName + " (" + counted(lines, "line", "lines") + " compared)\n";
  };
  const bool headerFits = append(std::string(kReportFirstLine) + "\n") &&
                          append(side("Left: ", request.left, outcome.leftLineCount)) &&
                          append(side("Right: ", request.right, outcome.rightLineCount)) &&
                          append("Options: ignore whitespace " + onOff(request.options.ignoreWhitespace) +
                                 ", ignore case " + onOff(request.options.ignoreCase) + "\n");
  bool fits = headerFits;
  for (const std::string& notice : outcome.notices) fits = fits && append("Notice: " + notice + "\n");
  fits = fits && append("Result: " + summaryText(outcome) + "\n");
  if (fits && !outcome.diff.changes.empty() && append("\n"))
    writeChanges(request.left, request.right, outcome.diff, append);
  if (truncated) report += marker;
  return report;
}

std::string ReportSaveError::describe() const {
  return operation + "(" + path + ") failed: " + base::errnoText(error);
}

std::expected<void, ReportSaveError> saveReport(const std::filesystem::path& path, std::string_view text,
                                                persistence::FileIo& io) {
  auto written = persistence::writeFileAtomically(path, text, io);
  if (!written)
    return std::unexpected(
        ReportSaveError{written.error().operation, written.error().path, written.error().error});
  return {};
}

}  // namespace quorin::compare
