#include "CompareCommand.h"

#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>

#include "Cli.h"
#include "Interrupt.h"
#include "Json.h"
#include "Options.h"
#include "Progress.h"
#include "compare/CompareReport.h"
#include "compare/Comparison.h"
#include "dispatch/ManualMainQueue.h"
#include "document/Document.h"

namespace quorin::cli {
namespace {

using CompareResult = std::expected<compare::CompareOutcome, compare::CompareError>;

int failed(std::ostream& err, std::string_view title, std::string_view message, std::string_view detail) {
  err << "quorin-cli: " << title << ": " << message << '\n';
  if (!detail.empty()) err << "quorin-cli: " << detail << '\n';
  return kExitFailure;
}

std::expected<std::shared_ptr<document::Document>, compare::CompareError> openSide(
    const std::string& path, dispatch::ManualMainQueue& main) {
  document::OpenOptions options;
  options.mainQueue = &main;
  options.watchMemoryPressure = false;
  auto doc = document::Document::open(path, std::move(options));
  if (!doc) return std::unexpected(compare::CompareError{path, doc.error().describe()});
  return *doc;
}

// Lets a side's line index finish, as the window would before offering
// Compare: a comparison of the indexed part only would be a surprise on the
// command line. False when interrupted.
bool waitForIndex(document::Document& doc, dispatch::ManualMainQueue& main, std::ostream& err) {
  const InterruptGuard interrupt([&doc] { doc.cancelLineIndex(); });
  const ProgressLine progress(err, [&doc] {
    const auto p = doc.lineIndexProgress();
    return "indexing " + percentText(static_cast<double>(p.bytesScanned), static_cast<double>(p.bytesTotal));
  });
  while (!doc.waitForLineIndex(std::chrono::milliseconds(100)) && !interruptRequested()) main.runPending();
  main.runPending();
  return !interruptRequested();
}

CompareResult runJob(compare::CompareRequest request, dispatch::ManualMainQueue& main, std::ostream& err) {
  std::optional<CompareResult> result;
  std::atomic<double> fraction{0};
  auto job = compare::CompareJob::start(
      std::move(request), main,
      [&fraction](const compare::CompareProgress& p) {
        fraction.store(p.fraction(), std::memory_order_relaxed);
      },
      [&result](const CompareResult& finished) { result = finished; });
  // The completion comes after a cancel too, so the loop always ends.
  const InterruptGuard interrupt([&job] { job->cancel(); });
  const ProgressLine progress(
      err, [&fraction] { return "comparing " + percentText(fraction.load(std::memory_order_relaxed), 1.0); });
  while (!result) main.waitAndRun(std::chrono::milliseconds(100));
  return std::move(*result);
}

void printJson(std::ostream& out, const compare::CompareRequest& request,
               const compare::CompareOutcome& outcome) {
  JsonWriter json(out);
  json.beginObject()
      .field("left", request.left.displayName)
      .field("right", request.right.displayName)
      .key("options")
      .beginObject()
      .field("ignoreWhitespace", request.options.ignoreWhitespace)
      .field("ignoreCase", request.options.ignoreCase)
      .endObject()
      .field("leftLineCount", outcome.leftLineCount)
      .field("rightLineCount", outcome.rightLineCount)
      .key("changes")
      .beginArray();
  for (const compare::DiffChange& change : outcome.diff.changes) {
    json.beginObject()
        .field("leftStart", change.leftStart)
        .field("leftCount", change.leftCount)
        .field("rightStart", change.rightStart)
        .field("rightCount", change.rightCount)
        .endObject();
  }
  json.endArray().field("capped", outcome.diff.capped).key("notices").beginArray();
  for (const std::string& notice : outcome.notices) json.value(notice);
  json.endArray()
      .field("summary", compare::summaryText(outcome))
      .field("elapsedSeconds", outcome.elapsedSeconds)
      .endObject();
  out << '\n';
}

void printText(std::ostream& out, const compare::CompareRequest& request,
               const compare::CompareOutcome& outcome) {
  compare::writeChanges(request.left, request.right, outcome.diff, [&out](std::string_view line) {
    out << line;
    return true;
  });
  for (const std::string& notice : outcome.notices) out << "notice: " << notice << '\n';
  out << compare::summaryText(outcome) << '\n';
}

}  // namespace

int runCompare(std::span<const std::string> args, std::ostream& out, std::ostream& err) {
  static constexpr std::array<OptionSpec, 4> kOptions = {
      {{"--ignore-whitespace"}, {"--ignore-case"}, {"--report", true}, {"--json"}}};
  const auto parsed = parseCommandLine("compare", args, kOptions, 2, 2, err);
  if (!parsed) return kExitFailure;

  dispatch::ManualMainQueue main;
  std::array<std::shared_ptr<document::Document>, 2> docs;
  for (size_t i = 0; i < 2; ++i) {
    auto doc = openSide(parsed->positionals[i], main);
    if (!doc) return failed(err, compare::CompareError::title(), doc.error().describe(), doc.error().detail);
    docs[i] = std::move(*doc);
  }
  for (const auto& doc : docs)
    if (!waitForIndex(*doc, main, err)) return kExitInterrupted;
  compare::CompareRequest request{
      .left = compare::CompareSide::of(docs[0]->describedSnapshot(), parsed->positionals[0]),
      .right = compare::CompareSide::of(docs[1]->describedSnapshot(), parsed->positionals[1]),
      .options = {.ignoreWhitespace = parsed->has("--ignore-whitespace"),
                  .ignoreCase = parsed->has("--ignore-case")},
  };
  const CompareResult result = runJob(request, main, err);
  if (interruptRequested() || (result && result->cancelled)) return kExitInterrupted;
  if (!result)
    return failed(err, compare::CompareError::title(), result.error().describe(), result.error().detail);

  if (const auto report = parsed->value("--report")) {
    std::filesystem::path path = *report;
    std::error_code ec;
    if (std::filesystem::is_directory(path, ec)) path /= compare::kDefaultReportFileName;
    const auto saved = compare::saveReport(path, compare::buildReport(request, *result));
    if (!saved) return failed(err, compare::ReportSaveError::title(), saved.error().describe(), {});
  }

  if (parsed->has("--json")) {
    printJson(out, request, *result);
  } else {
    printText(out, request, *result);
  }
  return result->identical() ? kExitOk : kExitNotFound;
}

}  // namespace quorin::cli
