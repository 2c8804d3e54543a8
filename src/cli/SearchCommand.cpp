#include "SearchCommand.h"

#include <array>
#include <chrono>
#include <cstdio>

#include "Cli.h"
#include "Json.h"
#include "Options.h"
#include "search/SearchEngine.h"
#include "storage/InMemoryLineIndex.h"
#include "storage/MMapWrapper.h"
#include "storage/OriginalBuffer.h"
#include "text/LineEnding.h"

namespace quorin::cli {
namespace {

constexpr int kExitNoMatch = 1;
constexpr const char* kUsage =
    "usage: quorin-cli search [--regex] [-i] [-w] [--escapes] [--count] [--json] PATTERN FILE\n";
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
  const auto parsed = parseOptions(args, kOptions);
  if (!parsed) {
    err << "quorin-cli: " << parsed.error() << '\n' << kUsage;
    return kExitFailure;
  }
  if (parsed->positionals.size() != 2) {
    err << "quorin-cli: search takes a PATTERN and a FILE\n" << kUsage;
    return kExitFailure;
  }
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
  index->startBuild();
  while (!index->waitUntilComplete(std::chrono::seconds(1))) {
  }
  const auto text = table->snapshot();
  const auto lines = index->snapshot();

  search::SearchCancellation cancellation;
  const search::SearchResult result =
      search::SearchEngine().search(search::kFindBarMatchCap, options, text, lines, cancellation);
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
      for (const auto& match : result.matches) {
        json.beginObject()
            .field("line", match.line + 1)
            .field("offset", match.matchByteStart)
            .field("length", match.matchByteLength)
            .field("text", lineText(text, match, terminator))
            .endObject();
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
    for (const auto& match : result.matches) {
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
  return result.totalMatchCount > 0 ? kExitOk : kExitNoMatch;
}

}  // namespace quorin::cli
