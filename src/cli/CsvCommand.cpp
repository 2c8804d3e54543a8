#include "CsvCommand.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <optional>
#include <vector>

#include "Cli.h"
#include "Interrupt.h"
#include "Json.h"
#include "OpenedText.h"
#include "Options.h"
#include "Progress.h"
#include "csv/CSVRecordIndex.h"
#include "csv/DelimiterDetection.h"
#include "csv/FieldSplit.h"
#include "dispatch/Clock.h"
#include "jobs/JobRegistry.h"
#include "storage/MMapWrapper.h"
#include "storage/OriginalBuffer.h"
#include "storage/PieceTable.h"
#include "storage/ScratchDirectory.h"
#include "text/EncodingDetector.h"
#include "text/Transcoder.h"

namespace quorin::cli {
namespace {

constexpr size_t kFirstMalformedShown = 10;
constexpr int64_t kRowBatchBytes = 4 * 1024 * 1024;
constexpr size_t kOutputFlushBytes = 1 << 20;

std::expected<csv::CSVDelimiter, std::string> delimiterNamed(std::string text) {
  std::ranges::transform(text, text.begin(),
                         [](char c) { return c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c; });
  if (text == "comma") return csv::CSVDelimiter::comma();
  if (text == "tab" || text == "\\t") return csv::CSVDelimiter::tab();
  if (text == "pipe") return csv::CSVDelimiter::pipe();
  if (text == "semicolon") return csv::CSVDelimiter::semicolon();
  return csv::customDelimiter(text);
}

std::string delimiterText(const csv::CSVDelimiter& delimiter) {
  return std::string(1, static_cast<char>(delimiter.byte));
}

void printSummary(const std::string& path, const storage::PieceTableSnapshot& text,
                  const csv::CSVRecordIndex& index, double seconds, bool asJson, std::ostream& out) {
  const csv::CSVStructureStats stats = index.statistics();
  const csv::CSVParseState state = index.parseState();
  csv::CSVStateAnnouncer announcer;
  const std::optional<std::string> message = announcer.adoptFreshIndex(stats, state);
  std::vector<int64_t> firstMalformed;  // 1-based, as r1234 takes them
  for (size_t i = 0; i < std::min(stats.malformedRows.size(), kFirstMalformedShown); ++i)
    firstMalformed.push_back(stats.malformedRows[i] + 1);

  if (asJson) {
    JsonWriter json(out);
    json.beginObject()
        .field("path", path)
        .field("bytes", text.totalLength())
        .key("delimiter")
        .beginObject()
        .field("name", index.delimiter().name)
        .field("character", delimiterText(index.delimiter()))
        .endObject()
        .field("rows", stats.rowCount)
        .field("expectedColumns", stats.expectedColumns)
        .field("malformedRows", stats.malformedRowCount)
        .field("longestMalformedRun", stats.maxContiguousMalformed)
        .field("unterminatedQuote", stats.unterminatedQuote)
        .key("firstMalformedRows")
        .beginArray();
    for (const int64_t row : firstMalformed) json.value(row);
    json.endArray().field("state", csv::rawValue(state)).key("message");
    message ? json.value(*message) : json.null();
    json.field("indexSeconds", seconds).endObject();
    out << '\n';
    return;
  }
  out << "delimiter: " << index.delimiter().name << '\n'
      << "rows: " << stats.rowCount << '\n'
      << "expectedColumns: " << stats.expectedColumns << '\n'
      << "malformedRows: " << stats.malformedRowCount << '\n'
      << "longestMalformedRun: " << stats.maxContiguousMalformed << '\n'
      << "unterminatedQuote: " << (stats.unterminatedQuote ? "yes" : "no") << '\n'
      << "firstMalformedRows:";
  if (firstMalformed.empty()) out << " none";
  for (size_t i = 0; i < firstMalformed.size(); ++i) out << (i == 0 ? " " : ", ") << firstMalformed[i];
  out << '\n' << "state: " << csv::rawValue(state) << '\n';
  if (message) out << "message: " << *message << '\n';
}

// Every row as a JSON array of its cell values, reading the text a few
// megabytes of rows at a time, until the end or an interrupt.
void printRows(const storage::PieceTableSnapshot& text, const csv::CSVRecordIndex& index, std::ostream& out) {
  const int64_t rowCount = index.rowCount();
  const int64_t end = index.bytesScanned();
  const uint8_t delimiter = index.delimiter().byte;
  std::vector<uint8_t> bytes;
  std::string line;
  int64_t row = 0;
  while (row < rowCount && !interruptRequested()) {
    // Rows [row, last) whose bytes fill about one batch; at least one row.
    std::vector<int64_t> starts = index.rowStarts(row, 65'536);
    const int64_t afterBatch = row + static_cast<int64_t>(starts.size());
    starts.push_back(afterBatch < rowCount ? *index.rowStart(afterBatch) : end);
    size_t taken = 1;
    while (taken + 1 < starts.size() && starts[taken + 1] - starts[0] <= kRowBatchBytes) ++taken;
    bytes.resize(static_cast<size_t>(starts[taken] - starts[0]));
    bytes.resize(static_cast<size_t>(text.copyBytes({starts[0], starts[taken]}, bytes.data())));

    for (size_t i = 0; i < taken; ++i) {
      const auto from = static_cast<size_t>(starts[i] - starts[0]);
      const auto to = std::min(static_cast<size_t>(starts[i + 1] - starts[0]), bytes.size());
      const std::span<const uint8_t> record(bytes.data() + std::min(from, to), to - std::min(from, to));
      line.push_back('[');
      bool first = true;
      for (const csv::CSVField& field : csv::splitFields(record, delimiter)) {
        if (!first) line.push_back(',');
        first = false;
        const auto raw = record.subspan(static_cast<size_t>(field.offset), static_cast<size_t>(field.length));
        appendJsonString(line, csv::fieldValue(raw, field.quoted));
      }
      line += "]\n";
      if (line.size() >= kOutputFlushBytes) {
        out.write(line.data(), static_cast<std::streamsize>(line.size()));
        line.clear();
      }
    }
    row += static_cast<int64_t>(taken);
  }
  out.write(line.data(), static_cast<std::streamsize>(line.size()));
}

}  // namespace

int runCsv(std::span<const std::string> args, std::ostream& out, std::ostream& err) {
  static constexpr std::array<OptionSpec, 3> kOptions = {{{"--json"}, {"--rows"}, {"--delimiter", true}}};
  const auto parsed = parseCommandLine("csv", args, kOptions, 1, 1, err);
  if (!parsed) return kExitFailure;
  std::optional<csv::CSVDelimiter> chosen;
  if (const auto name = parsed->value("--delimiter")) {
    auto delimiter = delimiterNamed(*name);
    if (!delimiter) {
      err << "quorin-cli: " << delimiter.error() << '\n';
      return kExitFailure;
    }
    chosen = std::move(*delimiter);
  }
  const std::string& path = parsed->positionals.front();
  auto opened = openText(path);
  if (!opened) {
    err << "quorin-cli: " << opened.error() << '\n';
    return kExitFailure;
  }
  const storage::PieceTableSnapshot text = opened->table->snapshot();
  const uint8_t terminator = csv::recordTerminator(opened->original->lineEnding());
  if (!chosen) chosen = csv::detectDelimiter(text, terminator);
  if (!chosen) {
    err << "quorin-cli: " << csv::kCouldNotParseMessage << '\n';
    return kExitFailure;
  }

  const uint64_t startNs = dispatch::monotonicNanos();
  csv::CSVRecordIndex index(*chosen, text.totalLength());
  // Through a job token, as the table view builds it: Ctrl+C cancels it there.
  jobs::JobRegistry jobs;
  const auto token = jobs.begin("Indexing table");
  {
    const InterruptGuard interrupt([&token] { token->cancel(); });
    const ProgressLine progress(err,
                                [&token] { return "indexing table " + percentText(token->progress(), 1.0); });
    index.build(text, terminator, token.get());
  }
  token->finish();
  if (interruptRequested()) return kExitInterrupted;
  const double seconds = static_cast<double>(dispatch::monotonicNanos() - startNs) / 1e9;

  if (parsed->has("--rows")) {
    printRows(text, index, out);
    if (interruptRequested()) return kExitInterrupted;
  } else {
    printSummary(path, text, index, seconds, parsed->has("--json"), out);
  }
  return kExitOk;
}

}  // namespace quorin::cli
