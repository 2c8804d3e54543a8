#include "RecoverCommand.h"

#include <array>

#include "Cli.h"
#include "Options.h"
#include "persistence/PatchJournal.h"
#include "persistence/PatchJournalRecovery.h"

namespace quorin::cli {
namespace {

using persistence::PatchJournal;
using persistence::PatchJournalRecovery;

constexpr const char* kUsage = "usage: quorin-cli recover [--restore|--discard] [JOURNAL...]\n";

const char* verdictText(PatchJournalRecovery::Verdict verdict) {
  switch (verdict) {
    case PatchJournalRecovery::Verdict::targetMissing: return "target is gone: the journal is deleted";
    case PatchJournalRecovery::Verdict::completed: return "the save completed: the journal is deleted";
    case PatchJournalRecovery::Verdict::neverStarted: return "the save never started: the journal is deleted";
    case PatchJournalRecovery::Verdict::torn: return "torn: restore recommended (--restore)";
    case PatchJournalRecovery::Verdict::changedExternally:
      return "changed since the interruption: restoring would overwrite those changes";
  }
  return "";
}

}  // namespace

int runRecover(std::span<const std::string> args, std::ostream& out, std::ostream& err) {
  static constexpr std::array<OptionSpec, 2> kOptions = {{{"--restore"}, {"--discard"}}};
  const auto parsed = parseOptions(args, kOptions);
  if (!parsed || (parsed->has("--restore") && parsed->has("--discard"))) {
    err << "quorin-cli: " << (parsed ? "--restore and --discard exclude each other" : parsed.error()) << '\n'
        << kUsage;
    return kExitFailure;
  }
  std::vector<std::filesystem::path> journals(parsed->positionals.begin(), parsed->positionals.end());
  if (journals.empty()) journals = PatchJournal::listPending();
  if (journals.empty()) {
    out << "no pending patch journals\n";
    return kExitOk;
  }
  const bool restore = parsed->has("--restore");
  const bool discard = parsed->has("--discard");
  int status = kExitOk;
  for (const auto& path : journals) {
    auto journal = PatchJournal::read(path);
    if (!journal) {
      err << "quorin-cli: " << journal.error().describe() << '\n';
      status = kExitFailure;
      continue;
    }
    const auto assessment = PatchJournalRecovery::assess(*journal);
    out << path.string() << "\n  target: " << journal->targetPath << "\n  regions: " << journal->entries.size()
        << "\n  verdict: " << verdictText(assessment.verdict) << '\n';
    if (!assessment.prompt) {
      PatchJournal::remove(path);
      continue;
    }
    if (restore) {
      if (PatchJournalRecovery::rollBack(*journal)) {
        out << "  restored\n";
      } else {
        err << "quorin-cli: " << PatchJournalRecovery::rollbackFailure(*journal).text << '\n';
        status = 1;
      }
    } else if (discard) {
      PatchJournal::remove(path);
      out << "  discarded; the file is left as it is\n";
    }
  }
  return status;
}

}  // namespace quorin::cli
