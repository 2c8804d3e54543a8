#include "BookmarksCommand.h"

#include <array>
#include <charconv>
#include <nlohmann/json.hpp>

#include "Cli.h"
#include "Interrupt.h"
#include "LogsFile.h"
#include "Options.h"
#include "bookmarks/BookmarkSet.h"
#include "bookmarks/IncidentReport.h"
#include "bookmarks/Reanchor.h"
#include "bookmarks/SidecarStore.h"
#include "logs/Messages.h"
#include "persistence/SmallFile.h"

namespace quorin::cli {
namespace {

using bookmarks::Bookmark;
using bookmarks::BookmarkSet;

// A file opened as a log, with its sidecar's bookmarks put back on its lines.
struct Investigation {
  OpenedLog log;
  logs::LogIndexData index;
  bookmarks::SidecarStore store;
  bookmarks::SidecarFile file;
  std::filesystem::path foundAt;
  BookmarkSet set;
  std::vector<bookmarks::SidecarBookmark> lost;
  std::string notes;
  bool moved = false;  // found under another name, or re-anchored: worth writing back

  document::DocumentSnapshot snapshot() const { return {log.table->snapshot(), log.lines->snapshot()}; }
  int64_t lineCount() const { return log.lines->snapshot().lineCount(); }
  std::string timeOf(int64_t line) const {
    if (!index.format) return {};
    const logs::LogSource source = log.source();
    logs::LineHeads heads(source);
    const auto head = logs::headAtOrAbove(index, heads, line);
    return head ? logs::formatLineTime(head->time) : std::string();
  }
};

// The error to print; empty after an interrupt.
std::expected<Investigation, std::string> investigate(const std::string& path, std::ostream& err) {
  auto directory = bookmarks::SidecarStore::defaultDirectory();
  if (!directory) return std::unexpected(directory.error());
  auto file = bookmarks::describeFile(path);
  if (!file) return std::unexpected("cannot read " + path);
  auto log = openLog(path, err);
  if (!log) return std::unexpected(log.error());
  Investigation inv{.log = std::move(*log), .store = bookmarks::SidecarStore(*directory), .file = *file};
  inv.index = indexLog(inv.log, err);
  if (interruptRequested()) return std::unexpected(std::string());
  if (auto found = inv.store.find(inv.file)) {
    const auto result = bookmarks::reanchor(found->sidecar, found->unchanged, inv.snapshot());
    std::vector<int64_t> lines;
    for (const Bookmark& mark : result.bookmarks) lines.push_back(mark.line);
    inv.set.addAll(lines);
    for (const Bookmark& mark : result.bookmarks) {
      if (!mark.note.empty()) inv.set.set(mark.line, mark.note);
    }
    inv.lost = result.lost;
    inv.notes = found->sidecar.notes;
    inv.foundAt = found->foundAt;
    inv.moved = !found->unchanged || found->foundAt.filename() != bookmarks::SidecarStore::fileName(inv.file);
  }
  return inv;
}

std::optional<int64_t> lineArgument(const std::string& text, int64_t lineCount, std::ostream& err) {
  int64_t line = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), line);
  if (error != std::errc() || end != text.data() + text.size() || line < 1 || line > lineCount) {
    err << "quorin-cli: " << text << " is not a line of the file (1 to " << lineCount << ")\n";
    return std::nullopt;
  }
  return line - 1;
}

int failedToOpen(const std::string& error, std::ostream& err) {
  if (error.empty()) return kExitInterrupted;
  err << "quorin-cli: " << error << '\n';
  return kExitFailure;
}

}  // namespace

int runBookmarks(std::span<const std::string> args, std::ostream& out, std::ostream& err) {
  static constexpr std::array<OptionSpec, 4> kOptions = {
      {{"--add", true}, {"--note", true}, {"--remove", true}, {"--json"}}};
  const auto parsed = parseCommandLine("bookmarks", args, kOptions, 1, 1, err);
  if (!parsed) return kExitFailure;
  if (parsed->has("--note") && !parsed->has("--add")) {
    printUsageError(err, "bookmarks", "--note needs --add LINE");
    return kExitFailure;
  }
  const std::string& path = parsed->positionals.front();
  auto inv = investigate(path, err);
  if (!inv) return failedToOpen(inv.error(), err);

  bool changed = inv->moved;
  for (const std::string& text : parsed->values("--remove")) {
    const auto line = lineArgument(text, inv->lineCount(), err);
    if (!line) return kExitFailure;
    changed |= inv->set.remove(*line);
  }
  for (const std::string& text : parsed->values("--add")) {
    const auto line = lineArgument(text, inv->lineCount(), err);
    if (!line) return kExitFailure;
    inv->set.set(*line, parsed->value("--note").value_or(inv->set.note(*line).value_or("")));
    changed = true;
  }
  if (changed) {
    const auto sidecar =
        bookmarks::sidecarFor(inv->file, inv->set.all(), inv->lost, inv->notes, inv->snapshot());
    if (auto written = inv->store.write(sidecar, inv->foundAt); !written) {
      err << "quorin-cli: Bookmarks could not be saved: " << written.error().describe() << '\n';
      return kExitFailure;
    }
  }

  const auto snapshot = inv->snapshot();
  if (parsed->has("--json")) {
    nlohmann::json marks = nlohmann::json::array(), lost = nlohmann::json::array();
    for (const Bookmark& mark : inv->set.all()) {
      const std::string time = inv->timeOf(mark.line);
      marks.push_back({{"line", mark.line + 1},
                       {"time", time.empty() ? nlohmann::json() : nlohmann::json(time)},
                       {"note", mark.note},
                       {"text", bookmarks::reportLineText(snapshot, mark.line)}});
    }
    for (const auto& mark : inv->lost) lost.push_back({{"line", mark.line + 1}, {"note", mark.note}});
    const nlohmann::json json{{"file", path}, {"bookmarks", marks}, {"lost", lost}, {"notes", inv->notes}};
    out << json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
    return kExitOk;
  }
  for (const Bookmark& mark : inv->set.all()) {
    const std::string time = inv->timeOf(mark.line);
    std::string note = mark.note.substr(0, mark.note.find('\n'));
    out << mark.line + 1 << '\t' << (time.empty() ? "-" : time) << '\t' << (note.empty() ? "-" : note) << '\t'
        << bookmarks::reportLineText(snapshot, mark.line, 200) << '\n';
  }
  for (const auto& mark : inv->lost) out << "lost\t" << mark.line + 1 << '\t' << mark.note << '\n';
  return kExitOk;
}

int runReport(std::span<const std::string> args, std::ostream& out, std::ostream& err) {
  static constexpr std::array<OptionSpec, 3> kOptions = {{{"-o", true}, {"--html"}, {"--context", true}}};
  const auto parsed = parseCommandLine("report", args, kOptions, 1, 1, err);
  if (!parsed) return kExitFailure;
  int context = 0;
  if (const auto text = parsed->value("--context")) {
    const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), context);
    if (error != std::errc() || end != text->data() + text->size() || context < 0 || context > 50) {
      printUsageError(err, "report", "--context needs a number of lines from 0 to 50");
      return kExitFailure;
    }
  }
  const std::string& path = parsed->positionals.front();
  auto inv = investigate(path, err);
  if (!inv) return failedToOpen(inv.error(), err);
  const auto snapshot = inv->snapshot();
  const bookmarks::ReportSources sources{.snapshot = &snapshot,
                                         .timeOfLine = [&](int64_t line) { return inv->timeOf(line); },
                                         .contextLines = context};
  const auto report = bookmarks::gatherReport(sources, inv->file.path, inv->set.all(), inv->lost, inv->notes);
  const auto target = parsed->value("-o");
  const bool html = parsed->has("--html") || (target && target->ends_with(".html"));
  const std::string text = html ? bookmarks::reportHtml(report) : bookmarks::reportMarkdown(report);
  if (!target || *target == "-") {
    out << text;
    return kExitOk;
  }
  if (auto written = persistence::writeFileAtomically(*target, text); !written) {
    err << "quorin-cli: the report could not be written: " << written.error().describe() << '\n';
    return kExitFailure;
  }
  return kExitOk;
}

}  // namespace quorin::cli
