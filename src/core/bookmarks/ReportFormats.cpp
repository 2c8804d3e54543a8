// The incident report as Markdown and as HTML. Everything the user or the
// log wrote is escaped; the only markup taken from the notes is a small
// Markdown subset (headings, lists, paragraphs, `code`, links), enough for
// notes written in the panel.

#include <algorithm>

#include "base/ByteCount.h"
#include "bookmarks/IncidentReport.h"

namespace quorin::bookmarks {
namespace {

std::string numbered(int64_t line) { return base::groupDigits(line + 1); }

std::string heading(const ReportLine& line) {
  return "Line " + numbered(line.line) + (line.time.empty() ? "" : " · " + line.time);
}

std::string summary(const IncidentReport& r) {
  std::string text = base::formatByteCount(r.fileBytes) + ", " + base::groupDigits(r.lineCount) +
                     (r.lineCount == 1 ? " line" : " lines");
  return text;
}

std::string bookmarkCount(const IncidentReport& r) {
  std::string text = base::groupDigits(static_cast<int64_t>(r.bookmarks.size()));
  if (!r.lost.empty()) text += " (" + base::groupDigits(static_cast<int64_t>(r.lost.size())) + " lost)";
  return text;
}

// A code fence longer than any run of backticks in the lines it holds.
std::string fenceFor(const std::vector<std::string>& lines) {
  size_t longest = 0;
  for (const std::string& line : lines) {
    size_t run = 0;
    for (const char c : line) {
      run = c == '`' ? run + 1 : 0;
      longest = std::max(longest, run);
    }
  }
  return std::string(std::max<size_t>(3, longest + 1), '`');
}

std::vector<std::string> contextRows(const ReportBookmark& mark) {
  std::vector<std::string> rows;
  const int64_t lastLine = mark.after.empty() ? mark.line.line : mark.after.back().line;
  const size_t width = numbered(lastLine).size();
  const auto row = [&](const ReportLine& line, bool marked) {
    const std::string number = numbered(line.line);
    rows.push_back(std::string(marked ? "> " : "  ") + std::string(width - number.size(), ' ') + number +
                   "  " + line.text);
  };
  for (const auto& line : mark.before) row(line, false);
  row(mark.line, true);
  for (const auto& line : mark.after) row(line, false);
  return rows;
}

std::string escapeHtml(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&#39;"; break;
      default: out += c;
    }
  }
  return out;
}

// `code` and [label](target) within one line of the notes, escaped.
std::string inlineHtml(std::string_view line) {
  std::string out;
  for (size_t i = 0; i < line.size();) {
    if (line[i] == '`') {
      const size_t end = line.find('`', i + 1);
      if (end != std::string_view::npos) {
        out += "<code>" + escapeHtml(line.substr(i + 1, end - i - 1)) + "</code>";
        i = end + 1;
        continue;
      }
    }
    if (line[i] == '[') {
      const size_t close = line.find("](", i);
      const size_t end = close == std::string_view::npos ? close : line.find(')', close);
      if (end != std::string_view::npos) {
        const std::string_view label = line.substr(i + 1, close - i - 1);
        const std::string_view target = line.substr(close + 2, end - close - 2);
        std::string href;
        if (target.starts_with("quorin:line/")) {
          href = "#line-" + std::string(target.substr(12));
        } else if (target.starts_with("https://") || target.starts_with("http://")) {
          href = std::string(target);
        }
        if (!href.empty()) {
          out += "<a href=\"" + escapeHtml(href) + "\">" + escapeHtml(label) + "</a>";
          i = end + 1;
          continue;
        }
      }
    }
    out += escapeHtml(line.substr(i, 1));
    ++i;
  }
  return out;
}

std::string notesHtml(std::string_view notes) {
  std::string out;
  bool inList = false, inParagraph = false;
  const auto closeBlocks = [&] {
    if (inList) out += "</ul>\n";
    if (inParagraph) out += "</p>\n";
    inList = inParagraph = false;
  };
  size_t start = 0;
  while (start <= notes.size()) {
    size_t end = notes.find('\n', start);
    if (end == std::string_view::npos) end = notes.size();
    std::string_view line = notes.substr(start, end - start);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    start = end + 1;
    const size_t hashes = line.find_first_not_of('#');
    if (line.empty()) {
      closeBlocks();
    } else if (hashes > 0 && hashes <= 6 && hashes < line.size() && line[hashes] == ' ') {
      closeBlocks();
      const std::string level = std::to_string(std::min<size_t>(6, hashes + 2));
      out += "<h" + level + ">" + inlineHtml(line.substr(hashes + 1)) + "</h" + level + ">\n";
    } else if (line.starts_with("- ") || line.starts_with("* ")) {
      if (inParagraph) out += "</p>\n";
      inParagraph = false;
      if (!inList) out += "<ul>\n";
      inList = true;
      out += "<li>" + inlineHtml(line.substr(2)) + "</li>\n";
    } else {
      if (inList) out += "</ul>\n";
      inList = false;
      out += inParagraph ? "<br>\n" : "<p>";
      inParagraph = true;
      out += inlineHtml(line);
    }
    if (end == notes.size()) break;
  }
  closeBlocks();
  return out;
}

std::string preHtml(const ReportBookmark& mark) {
  std::string out = "<pre>";
  const auto row = [&](const ReportLine& line, bool marked) {
    out += marked ? "<mark>" : "";
    out += "<span class=\"n\">" + numbered(line.line) + "</span>  " + escapeHtml(line.text);
    out += marked ? "</mark>\n" : "\n";
  };
  for (const auto& line : mark.before) row(line, false);
  row(mark.line, true);
  for (const auto& line : mark.after) row(line, false);
  return out + "</pre>\n";
}

}  // namespace

std::string reportMarkdown(const IncidentReport& r) {
  std::string md = "# Incident report: " + r.fileName + "\n\n";
  md += "- Size: " + summary(r) + "\n";
  if (!r.firstTime.empty()) md += "- Time span: " + r.firstTime + " to " + r.lastTime + "\n";
  md += "- Bookmarks: " + bookmarkCount(r) + "\n";
  md += "- Written: " + r.written + " with Quorin\n";
  if (!r.notes.empty()) {
    md += "\n## Notes\n\n" + r.notes + (r.notes.ends_with('\n') ? "" : "\n");
  }
  if (!r.linkedLines.empty()) {
    md += "\n### Lines linked from the notes\n\n";
    for (const ReportLine& line : r.linkedLines) {
      const std::string fence = fenceFor({line.text});
      md += "- **" + heading(line) + "**\n\n  " + fence + "text\n  " + line.text + "\n  " + fence + "\n";
    }
  }
  if (!r.bookmarks.empty()) md += "\n## Bookmarks\n";
  for (const ReportBookmark& mark : r.bookmarks) {
    md += "\n### " + heading(mark.line) + "\n\n";
    if (!mark.note.empty()) {
      size_t start = 0;
      while (start <= mark.note.size()) {
        const size_t end = std::min(mark.note.find('\n', start), mark.note.size());
        md += "> " + mark.note.substr(start, end - start) + "\n";
        start = end + 1;
      }
      md += "\n";
    }
    const auto rows = contextRows(mark);
    const std::string fence = fenceFor(rows);
    md += fence + "text\n";
    for (const std::string& row : rows) md += row + "\n";
    md += fence + "\n";
  }
  if (!r.lost.empty()) {
    md += "\n## Lost bookmarks\n\nThese lines were not found again in the changed file.\n\n";
    for (const SidecarBookmark& mark : r.lost) {
      md += "- Line " + numbered(mark.line) + (mark.note.empty() ? "" : ": " + mark.note) + "\n";
    }
  }
  return md;
}

std::string reportHtml(const IncidentReport& r) {
  std::string html =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>Incident report: " +
      escapeHtml(r.fileName) +
      "</title>\n<style>\nbody{font-family:sans-serif;max-width:60em;margin:2em auto;padding:0 "
      "1em;color:#222}\n"
      "pre{background:#f5f5f5;padding:.6em;overflow-x:auto}\nmark{display:block;background:#fff3b0}\n"
      ".n{color:#888}\nblockquote{border-left:3px solid "
      "#ccc;margin-left:0;padding-left:1em;white-space:pre-wrap}\n"
      "</style>\n</head>\n<body>\n";
  html += "<h1>Incident report: " + escapeHtml(r.fileName) + "</h1>\n<ul>\n";
  html += "<li>Size: " + escapeHtml(summary(r)) + "</li>\n";
  if (!r.firstTime.empty()) {
    html += "<li>Time span: " + escapeHtml(r.firstTime) + " to " + escapeHtml(r.lastTime) + "</li>\n";
  }
  html += "<li>Bookmarks: " + bookmarkCount(r) + "</li>\n<li>Written: " + escapeHtml(r.written) +
          " with Quorin</li>\n</ul>\n";
  if (!r.notes.empty()) html += "<h2>Notes</h2>\n" + notesHtml(r.notes);
  if (!r.linkedLines.empty()) html += "<h3>Lines linked from the notes</h3>\n";
  for (const ReportLine& line : r.linkedLines) {
    html += "<p id=\"line-" + std::to_string(line.line + 1) + "\"><strong>" + escapeHtml(heading(line)) +
            "</strong></p>\n<pre>" + escapeHtml(line.text) + "</pre>\n";
  }
  if (!r.bookmarks.empty()) html += "<h2>Bookmarks</h2>\n";
  for (const ReportBookmark& mark : r.bookmarks) {
    html += "<h3 id=\"bookmark-" + std::to_string(mark.line.line + 1) + "\">" +
            escapeHtml(heading(mark.line)) + "</h3>\n";
    if (!mark.note.empty()) html += "<blockquote>" + escapeHtml(mark.note) + "</blockquote>\n";
    html += preHtml(mark);
  }
  if (!r.lost.empty()) {
    html += "<h2>Lost bookmarks</h2>\n<p>These lines were not found again in the changed file.</p>\n<ul>\n";
    for (const SidecarBookmark& mark : r.lost) {
      html += "<li>Line " + numbered(mark.line) + (mark.note.empty() ? "" : ": " + escapeHtml(mark.note)) +
              "</li>\n";
    }
    html += "</ul>\n";
  }
  return html + "</body>\n</html>\n";
}

}  // namespace quorin::bookmarks
