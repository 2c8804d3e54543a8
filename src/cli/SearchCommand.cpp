#include "SearchCommand.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <optional>

#include "Cli.h"
#include "Interrupt.h"
#include "Json.h"
#include "Options.h"
#include "Progress.h"
#include "search/SearchEngine.h"
#include "storage/InMemoryLineIndex.h"
#include "storage/MMapWrapper.h"
#include "storage/OriginalBuffer.h"
#include "text/LineEnding.h"

namespace quorin::cli {
namespace {

// Longer lines are shown cut, so one huge line cannot flood the terminal.
constexpr int64_t kMaxShownLineBytes = 4096;

// The text of the line holding `match`, without its line break.
std::string lineText(const storage::PieceTableSnapshot& text, const search::SearchMatch& match,
                     uint8_t terminator) {
  const int64_t end = std::min(text.totalLength(), match.lineByteStart + kMaxShownLineBytes);
  std::string line = text.readBytes({match.lineByteStart, end}).value_or("");
  const size_t stop = line.find(static_cast<char>(terminator));
  const bool cut = stop == std::string::npos && end < text.totalLength();
  if (stop != std::string::npos) line.resize(stop);
  if (terminator == '\n' && !line.empty() && line.back() == '\r') line.pop_back();
  if (cut) line += "…";
  return line;
}

}  // namespace

search::SearchOptions searchOptionsFrom(const ParsedOptions& parsed, std::string query) {
  search::SearchOptions options;
  options.query = std::move(query);
  options.regex = parsed.has("--regex");
  options.caseSensitive = !parsed.has("-i");
  options.wholeWord = parsed.has("-w");
  options.escapes = parsed.has("--escapes");
  return options;
}

int runSearch(std::span<const std::string> args, std::ostream& out, std::ostream& err) {
  static constexpr std::array<OptionSpec, 6> kOptions = {
      {{"--regex"}, {"-i"}, {"-w"}, {"--escapes"}, {"--count"}, {"--json"}}};
  const auto parsed = parseCommandLine("search", args, kOptions, 2, 2, err);
  if (!parsed) return kExitFailure;
  const search::SearchOptions options = searchOptionsFrom(*parsed, parsed->positionals[0]);
  const std::string& path = parsed->positionals[1];

  auto mmap = storage::MMapWrapper::open(path);
  if (!mmap) {
    err << "quorin-cli: " << mmap.error().describe() << '\n';
    return kExitFailure;
  }
  auto table = std::make_shared<storage::PieceTable>(storage::OriginalBuffer::make(*mmap));
  auto index = storage::InMemoryLineIndex::create(table, storage::LineIndexTier::inMemory(),
                                                  storage::LineIndexWindow::wholeDocument());
  // The first pass indexes the start of the file; the engine numbers the
  // lines past it itself while it scans them, so the rest of the index would
  // only read the whole file a second time, competing with the search.
  index->startBuild();
  index->cancel();
  const auto text = table->snapshot();
  std::atomic<int64_t> linesScanned{0}, totalLines{0};
  search::SearchCancellation cancellation;
  search::SearchHooks hooks;
  hooks.onProgress = [&](const search::SearchProgress& p) {
    linesScanned.store(p.linesScanned, std::memory_order_relaxed);
    totalLines.store(p.totalLines, std::memory_order_relaxed);
  };
  std::optional<search::SearchResult> found;
  {
    const InterruptGuard interrupt([&] { cancellation.cancel(); });
    // totalLines is an estimate from the indexed start of the file.
    const ProgressLine progress(err, [&] {
      return "searching " + percentText(static_cast<double>(linesScanned.load(std::memory_order_relaxed)),
                                        static_cast<double>(totalLines.load(std::memory_order_relaxed)));
    });
    found = search::SearchEngine().search(search::kFindBarMatchCap, options, text, index->snapshot(),
                                          cancellation, hooks);
  }
  if (interruptRequested() || !found || found->cancelled) return kExitInterrupted;
  const search::SearchResult& result = *found;
  if (result.compileError) {
    err << "quorin-cli: Invalid regex: " << *result.compileError << '\n';
    return kExitFailure;
  }

  if (parsed->has("--json")) {
    const uint8_t terminator = text::lineTerminator(text.originalBuffer().lineEnding());
    JsonWriter json(out);
    json.beginObject()
        .field("path", path)
        .field("totalMatchCount", result.totalMatchCount)
        .field("truncated", result.truncated)
        .field("timedOut", result.timedOut)
        .field("elapsedSeconds", result.elapsedSeconds);
    if (!parsed->has("--count")) {
      json.key("matches").beginArray();
      int64_t lastLine = -1;
      for (const auto& match : result.matches) {
        json.beginObject()
            .field("line", match.line + 1)
            .field("offset", match.matchByteStart)
            .field("length", match.matchByteLength);
        // The line's text once, with its first match: a line with a million
        // matches would otherwise be written a million times.
        if (match.line != lastLine) json.field("text", lineText(text, match, terminator));
        json.endObject();
        lastLine = match.line;
      }
      json.endArray();
    }
    json.endObject();
    out << '\n';
  } else if (parsed->has("--count")) {
    out << result.totalMatchCount << '\n';
  } else {
    const uint8_t terminator = text::lineTerminator(text.originalBuffer().lineEnding());
    std::string buffer;
    int64_t lastLine = -1;
    for (const auto& match : result.matches) {
      // One output line per matching line, as grep prints them.
      if (match.line == lastLine) continue;
      lastLine = match.line;
      buffer += std::to_string(match.line + 1);
      buffer += ':';
      buffer += std::to_string(match.matchByteStart);
      buffer += ':';
      buffer += lineText(text, match, terminator);
      buffer += '\n';
      if (buffer.size() > (1 << 16)) {
        out << buffer;
        buffer.clear();
      }
    }
    out << buffer;
    if (result.truncated) {
      err << "quorin-cli: " << result.totalMatchCount << " matches; the first " << result.matches.size()
          << " are shown\n";
    }
  }
  if (result.timedOut) {
    err << "quorin-cli: the search timed out after " << static_cast<int64_t>(result.elapsedSeconds)
        << " s; the results are partial\n";
    return kExitFailure;
  }
  return result.totalMatchCount > 0 ? kExitOk : kExitNotFound;
}

}  // namespace quorin::cli
