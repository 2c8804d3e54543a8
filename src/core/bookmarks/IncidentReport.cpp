#include "bookmarks/IncidentReport.h"

#include <algorithm>
#include <ctime>

#include "base/ByteCount.h"
#include "text/Utf8.h"

namespace quorin::bookmarks {
namespace {

constexpr std::string_view kLinkScheme = "](quorin:line/";

std::string validUtf8(std::string_view bytes) {
  const std::span<const uint8_t> data(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  std::string out;
  out.reserve(bytes.size());
  for (size_t i = 0; i < data.size();) {
    const auto step = text::readUtf8(data, i);
    if (step.kind == text::Utf8Step::Kind::valid) {
      out.append(bytes.substr(i, step.length));
    } else {
      out += "\xEF\xBF\xBD";
    }
    i += std::max<size_t>(1, step.length);
  }
  return out;
}

ReportLine lineOf(const ReportSources& sources, int64_t line) {
  return {line, sources.timeOfLine ? sources.timeOfLine(line) : std::string(),
          reportLineText(*sources.snapshot, line)};
}

std::string numbered(int64_t line) { return base::groupDigits(line + 1); }

std::string nowUtc() {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M UTC", &utc);
  return text;
}

}  // namespace

std::string reportLineText(const document::DocumentSnapshot& snapshot, int64_t line, int64_t maxBytes) {
  const auto start = snapshot.lines.lineStart(line);
  if (!start || line >= snapshot.lines.lineCount()) return {};
  const int64_t end = snapshot.lines.lineStart(line + 1).value_or(snapshot.text.totalLength());
  std::string bytes = snapshot.text.readBytes({*start, std::min(end, *start + maxBytes + 2)}).value_or("");
  const bool whole = *start + static_cast<int64_t>(bytes.size()) >= end;
  if (whole) {
    while (!bytes.empty() && (bytes.back() == '\n' || bytes.back() == '\r')) bytes.pop_back();
  }
  const bool cut = !whole || static_cast<int64_t>(bytes.size()) > maxBytes;
  if (cut) {
    bytes.resize(std::min<size_t>(bytes.size(), static_cast<size_t>(maxBytes)));
    // A sequence cut at the end is dropped, not replaced.
    while (!bytes.empty() && (static_cast<uint8_t>(bytes.back()) & 0xC0) == 0x80) bytes.pop_back();
    if (!bytes.empty() && static_cast<uint8_t>(bytes.back()) >= 0xC0) bytes.pop_back();
  }
  return validUtf8(bytes) + (cut ? "…" : "");
}

std::vector<int64_t> linkedLinesOf(std::string_view notes) {
  std::vector<int64_t> lines;
  for (size_t at = notes.find(kLinkScheme); at != std::string_view::npos;
       at = notes.find(kLinkScheme, at + 1)) {
    size_t i = at + kLinkScheme.size();
    int64_t number = 0;
    size_t digits = 0;
    while (i < notes.size() && notes[i] >= '0' && notes[i] <= '9' && digits < 15) {
      number = number * 10 + (notes[i++] - '0');
      ++digits;
    }
    if (digits > 0 && number > 0 && i < notes.size() && notes[i] == ')') lines.push_back(number - 1);
  }
  return lines;
}

std::string lineLink(const ReportLine& line) {
  std::string label = "line " + numbered(line.line);
  if (!line.time.empty()) label += " · " + line.time;
  std::string text = line.text.substr(0, 60);
  while (!text.empty() && (static_cast<uint8_t>(text.back()) & 0xC0) == 0x80) text.pop_back();
  if (!text.empty() && static_cast<uint8_t>(text.back()) >= 0xC0) text.pop_back();
  // Brackets would end the label early.
  std::replace(text.begin(), text.end(), '[', '(');
  std::replace(text.begin(), text.end(), ']', ')');
  if (!text.empty()) label += " · " + text + (text.size() < line.text.size() ? "…" : "");
  return "[" + label + "](quorin:line/" + std::to_string(line.line + 1) + ")";
}

IncidentReport gatherReport(const ReportSources& sources, std::string fileName,
                            const std::vector<Bookmark>& bookmarks, std::vector<SidecarBookmark> lost,
                            std::string notes) {
  const auto& snapshot = *sources.snapshot;
  // A file ending in a line break has no line after it, whatever the index counts.
  int64_t lineCount = snapshot.lines.lineCount();
  const auto lastByte = snapshot.text.byte(snapshot.text.totalLength() - 1);
  if (lineCount > 1 && lastByte && (*lastByte == '\n' || *lastByte == '\r')) --lineCount;
  IncidentReport report{.fileName = std::move(fileName),
                        .fileBytes = snapshot.text.totalLength(),
                        .lineCount = lineCount,
                        .notes = std::move(notes),
                        .lost = std::move(lost),
                        .written = nowUtc()};
  if (sources.timeOfLine && report.lineCount > 0) {
    // The first time is that of the first head line: look a little way down.
    for (int64_t line = 0; line < std::min<int64_t>(report.lineCount, 1000) && report.firstTime.empty();
         ++line) {
      report.firstTime = sources.timeOfLine(line);
    }
    report.lastTime = sources.timeOfLine(report.lineCount - 1);
  }
  for (const int64_t line : linkedLinesOf(report.notes)) {
    if (line < report.lineCount) report.linkedLines.push_back(lineOf(sources, line));
  }
  const int context = std::clamp(sources.contextLines, 0, 50);
  for (const Bookmark& mark : bookmarks) {
    if (mark.line >= report.lineCount) continue;
    ReportBookmark entry{.line = lineOf(sources, mark.line), .note = mark.note};
    for (int64_t line = std::max<int64_t>(0, mark.line - context); line < mark.line; ++line) {
      entry.before.push_back(lineOf(sources, line));
    }
    for (int64_t line = mark.line + 1; line <= std::min(report.lineCount - 1, mark.line + context); ++line) {
      entry.after.push_back(lineOf(sources, line));
    }
    report.bookmarks.push_back(std::move(entry));
  }
  return report;
}

}  // namespace quorin::bookmarks
