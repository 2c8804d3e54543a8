#include "ReplaceCommand.h"

#include <array>
#include <limits>
#include <optional>

#include "Cli.h"
#include "Interrupt.h"
#include "Json.h"
#include "Options.h"
#include "Progress.h"
#include "SearchCommand.h"
#include "dispatch/RunLoopMainQueue.h"
#include "document/Document.h"
#include "search/QueryText.h"
#include "search/SearchEngine.h"

namespace quorin::cli {
int runReplace(std::span<const std::string> args, std::ostream& out, std::ostream& err) {
  static constexpr std::array<OptionSpec, 6> kOptions = {
      {{"--regex"}, {"-i"}, {"-w"}, {"--escapes"}, {"--dry-run"}, {"--json"}}};
  const auto parsed = parseCommandLine("replace", args, kOptions, 3, 3, err);
  if (!parsed) return kExitFailure;
  const std::string& path = parsed->positionals[2];
  const bool asJson = parsed->has("--json");
  // The outcome, as text or as one JSON object.
  auto report = [&](int64_t count, std::optional<std::string_view> strategy,
                    std::optional<std::string> rejection) {
    if (asJson) {
      JsonWriter json(out);
      json.beginObject()
          .field("path", path)
          .field("dryRun", parsed->has("--dry-run"))
          .field("replaced", count);
      json.key("strategy");
      strategy ? json.value(*strategy) : json.null();
      json.key("rejection");
      rejection ? json.value(*rejection) : json.null();
      json.endObject();
      out << '\n';
      return;
    }
    out << (parsed->has("--dry-run") && count > 0 ? "would replace: " : "replaced: ") << count << '\n';
    if (strategy) out << "strategy: " << *strategy << '\n';
    if (rejection) out << "in-place patch rejected: " << *rejection << '\n';
  };
  const search::SearchOptions options = searchOptionsFrom(*parsed, parsed->positionals[0]);
  const std::string replacement =
      options.escapes ? search::expandEscapes(parsed->positionals[1]) : parsed->positionals[1];

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
  std::optional<search::SearchResult> found;
  {
    const InterruptGuard interrupt([&] {
      (*doc)->cancelLineIndex();
      cancellation.cancel();
    });
    const ProgressLine progress(err, [] { return std::string("searching"); });
    while (!(*doc)->waitForLineIndex(std::chrono::milliseconds(100)) && !interruptRequested()) {
    }
    if (!interruptRequested()) {
      const auto snapshot = (*doc)->snapshot();
      found = search::SearchEngine().search(std::numeric_limits<int32_t>::max(), options, snapshot.text,
                                            snapshot.lines, cancellation);
    }
  }
  // Nothing has been edited yet, so the file is untouched.
  if (interruptRequested() || !found || found->cancelled) return kExitInterrupted;
  const search::SearchResult& result = *found;
  if (result.compileError) {
    err << "quorin-cli: Invalid regex: " << *result.compileError << '\n';
    return kExitFailure;
  }
  if (result.timedOut) {
    err << "quorin-cli: the search timed out; nothing was replaced\n";
    return kExitFailure;
  }
  if (result.matches.empty()) {
    report(0, std::nullopt, std::nullopt);
    return kExitNotFound;
  }
  if (parsed->has("--dry-run")) {
    report(static_cast<int64_t>(result.matches.size()), std::nullopt, std::nullopt);
    return kExitOk;
  }
  std::vector<storage::PieceTable::BulkEditSite> sites;
  sites.reserve(result.matches.size());
  for (const auto& m : result.matches) {
    sites.push_back({{m.matchByteStart, m.matchByteStart + m.matchByteLength}, replacement});
  }
  if (auto edited = (*doc)->replaceAll(sites, "Replace All", {}, {}); !edited) {
    err << "quorin-cli: " << edited.error().describe() << '\n';
    return kExitFailure;
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
      report(static_cast<int64_t>(sites.size()), persistence::name(saved->strategy),
             saved->rejection ? std::optional(saved->rejection->describe()) : std::nullopt);
    }
    main.stop();
  });
  main.run();
  return status;
}

}  // namespace quorin::cli
