#include "ReplaceCommand.h"

#include <array>
#include <fstream>
#include <limits>
#include <optional>
#include <sstream>

#include "Cli.h"
#include "Interrupt.h"
#include "Json.h"
#include "Options.h"
#include "Progress.h"
#include "SearchCommand.h"
#include "dispatch/RunLoopMainQueue.h"
#include "document/Document.h"
#include "replace/PairsTsv.h"
#include "replace/ReplacePlanner.h"

namespace quorin::cli {
namespace {

// What is to be replaced: one query and its replacement, or a batch.
struct Job {
  std::optional<replace::PreparedReplacement> single;
  std::optional<replace::Batch> batch;
};

std::expected<std::string, std::string> readWholeFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::unexpected("cannot read " + path);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  if (in.bad()) return std::unexpected("cannot read " + path);
  return bytes.str();
}

// The query or the batch, checked before the file is opened: nothing runs
// unless all of it is valid.
std::expected<Job, std::string> prepareJob(const ParsedOptions& parsed) {
  Job job;
  if (const auto pairsPath = parsed.value("--batch")) {
    for (const char* global : {"--regex", "-i", "-w", "--escapes"}) {
      if (parsed.has(global)) {
        return std::unexpected(std::string(global) +
                               " does not apply to --batch: each pair has its own flags");
      }
    }
    const auto text = readWholeFile(*pairsPath);
    if (!text) return std::unexpected(text.error());
    const auto pairs = replace::readPairsTsv(*text);
    if (!pairs) return std::unexpected(*pairsPath + ": " + pairs.error().describe());
    if (pairs->empty()) return std::unexpected(*pairsPath + ": no pairs");
    const auto mode =
        parsed.has("--sequential") ? replace::BatchMode::sequential : replace::BatchMode::simultaneous;
    auto batch = replace::Batch::compile(*pairs, mode);
    if (!batch) return std::unexpected(batch.error().describe());
    job.batch = std::move(*batch);
    return job;
  }
  if (parsed.has("--sequential")) return std::unexpected(std::string("--sequential needs --batch"));
  auto prepared =
      replace::prepareReplacement(searchOptionsFrom(parsed, parsed.positionals[0]), parsed.positionals[1]);
  if (!prepared) return std::unexpected(prepared.error().describe());
  job.single = std::move(*prepared);
  return job;
}

}  // namespace

int runReplace(std::span<const std::string> args, std::ostream& out, std::ostream& err) {
  static constexpr std::array<OptionSpec, 8> kOptions = {{{"--regex"},
                                                          {"-i"},
                                                          {"-w"},
                                                          {"--escapes"},
                                                          {"--dry-run"},
                                                          {"--json"},
                                                          {"--batch", true},
                                                          {"--sequential"}}};
  bool batchMode = false;
  for (const std::string& arg : args)
    batchMode = batchMode || arg == "--batch" || arg.starts_with("--batch=");
  const size_t positionals = batchMode ? 1 : 3;
  const auto parsed = parseCommandLine("replace", args, kOptions, positionals, positionals, err);
  if (!parsed) return kExitFailure;
  const std::string& path = parsed->positionals.back();
  const bool asJson = parsed->has("--json");
  const bool dryRun = parsed->has("--dry-run");
  auto job = prepareJob(*parsed);
  if (!job) {
    err << "quorin-cli: " << job.error() << '\n';
    return kExitFailure;
  }
  // The outcome, as text or as one JSON object.
  auto report = [&](const replace::ReplacePlan& plan, std::optional<std::string_view> strategy,
                    std::optional<std::string> rejection) {
    const int64_t count = plan.replacements;
    if (asJson) {
      JsonWriter json(out);
      json.beginObject().field("path", path).field("dryRun", dryRun).field("replaced", count);
      if (job->batch) {
        json.key("perPair").beginArray();
        for (const int64_t n : plan.perPair) json.value(n);
        json.endArray();
      }
      json.key("strategy");
      strategy ? json.value(*strategy) : json.null();
      json.key("rejection");
      rejection ? json.value(*rejection) : json.null();
      json.endObject();
      out << '\n';
      return;
    }
    out << (dryRun && count > 0 ? "would replace: " : "replaced: ") << count << '\n';
    // A list may hold a million pairs: the text names those that matched.
    int64_t unmatched = 0;
    for (size_t i = 0; i < plan.perPair.size(); ++i) {
      if (plan.perPair[i] == 0) {
        ++unmatched;
      } else {
        out << "pair " << i + 1 << ": " << plan.perPair[i] << '\n';
      }
    }
    if (unmatched > 0) out << "pairs without a match: " << unmatched << '\n';
    if (strategy) out << "strategy: " << *strategy << '\n';
    if (rejection) out << "in-place patch rejected: " << *rejection << '\n';
  };

  dispatch::RunLoopMainQueue main;
  document::OpenOptions open;
  open.mainQueue = &main;
  open.watchFile = false;
  open.watchMemoryPressure = false;
  auto doc = document::Document::open(path, open);
  if (!doc) {
    err << "quorin-cli: " << doc.error().describe() << '\n';
    return kExitFailure;
  }
  search::SearchCancellation cancellation;
  std::optional<replace::ReplacePlan> planned;
  {
    const InterruptGuard interrupt([&] {
      (*doc)->cancelLineIndex();
      cancellation.cancel();
    });
    const ProgressLine progress(err, [] { return std::string("replacing"); });
    while (!(*doc)->waitForLineIndex(std::chrono::milliseconds(100)) && !interruptRequested()) {
    }
    if (!interruptRequested()) {
      const auto snapshot = (*doc)->snapshot();
      // The document lives only to be saved, so sites stay exact: merging
      // them into chunks would copy the text for nothing.
      const replace::PlanLimits limits{.mergeAboveSites = std::numeric_limits<int64_t>::max()};
      planned = job->batch ? replace::planBatch(*job->batch, snapshot, cancellation, {}, limits)
                           : replace::planReplaceAll(*job->single, snapshot, search::SearchEngine(),
                                                     cancellation, {}, limits);
    }
  }
  // Nothing has been edited yet, so the file is untouched.
  if (interruptRequested() || !planned || planned->cancelled) return kExitInterrupted;
  const replace::ReplacePlan& plan = *planned;
  if (plan.error) {
    if (plan.error->kind == replace::ReplaceError::Kind::timedOut) {
      err << "quorin-cli: the search timed out; nothing was replaced\n";
    } else {
      err << "quorin-cli: " << plan.error->describe() << '\n';
    }
    return kExitFailure;
  }
  if (plan.replacements == 0) {
    report(plan, std::nullopt, std::nullopt);
    return kExitNotFound;
  }
  if (dryRun) {
    report(plan, std::nullopt, std::nullopt);
    return kExitOk;
  }
  {
    // The sites' bytes are in the document now; only the counts are reported.
    const auto sites = std::move(planned->sites);
    if (auto edited = (*doc)->replaceAll(sites, job->batch ? "Batch Replace" : "Replace All", {}, {});
        !edited) {
      err << "quorin-cli: " << edited.error().describe() << '\n';
      return kExitFailure;
    }
  }
  // A save is not cancelled half-way: an in-place patch under way is
  // finished (or rolled back by its journal), and an atomic rewrite
  // replaces the file only when complete. A second Ctrl+C still ends the
  // process at once, and the journal then recovers the file.
  int status = kExitOk;
  (*doc)->save([&](const std::expected<persistence::SaveOutcome, persistence::SaveError>& saved) {
    if (!saved) {
      err << "quorin-cli: " << saved.error().describe() << '\n';
      status = kExitFailure;
    } else {
      report(plan, persistence::name(saved->strategy),
             saved->rejection ? std::optional(saved->rejection->describe()) : std::nullopt);
    }
    main.stop();
  });
  main.run();
  return status;
}

}  // namespace quorin::cli
