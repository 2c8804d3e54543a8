#include "ReplaceCommand.h"

#include <array>
#include <limits>

#include "Cli.h"
#include "Options.h"
#include "SearchCommand.h"
#include "dispatch/RunLoopMainQueue.h"
#include "document/Document.h"
#include "search/QueryText.h"
#include "search/SearchEngine.h"

namespace quorin::cli {
namespace {

constexpr const char* kUsage =
    "usage: quorin-cli replace [--regex] [-i] [-w] [--escapes] [--dry-run] PATTERN REPLACEMENT FILE\n";

}  // namespace

int runReplace(std::span<const std::string> args, std::ostream& out, std::ostream& err) {
  static constexpr std::array<OptionSpec, 5> kOptions = {
      {{"--regex"}, {"-i"}, {"-w"}, {"--escapes"}, {"--dry-run"}}};
  const auto parsed = parseOptions(args, kOptions);
  if (!parsed || parsed->positionals.size() != 3) {
    err << "quorin-cli: " << (parsed ? "replace takes PATTERN, REPLACEMENT and FILE" : parsed.error()) << '\n'
        << kUsage;
    return kExitFailure;
  }
  const std::string& path = parsed->positionals[2];
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
  (*doc)->lineIndex().waitUntilComplete(std::chrono::hours(24));
  const auto snapshot = (*doc)->snapshot();
  const search::SearchEngine engine;
  const search::SearchCancellation never;
  const auto result = engine.search(std::numeric_limits<int32_t>::max(), options, snapshot.text, snapshot.lines, never);
  if (result.compileError) {
    err << "quorin-cli: Invalid regex: " << *result.compileError << '\n';
    return kExitFailure;
  }
  if (result.timedOut) {
    err << "quorin-cli: the search timed out; nothing was replaced\n";
    return kExitFailure;
  }
  if (result.matches.empty()) {
    out << "replaced: 0\n";
    return 1;
  }
  if (parsed->has("--dry-run")) {
    out << "would replace: " << result.matches.size() << '\n';
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
  int status = kExitOk;
  (*doc)->save([&](const std::expected<persistence::SaveOutcome, persistence::SaveError>& saved) {
    if (!saved) {
      err << "quorin-cli: " << saved.error().describe() << '\n';
      status = kExitFailure;
    } else {
      out << "replaced: " << sites.size() << "\nstrategy: " << persistence::name(saved->strategy) << '\n';
      if (saved->rejection) out << "in-place patch rejected: " << saved->rejection->describe() << '\n';
    }
    main.stop();
  });
  main.run();
  return status;
}

}  // namespace quorin::cli
