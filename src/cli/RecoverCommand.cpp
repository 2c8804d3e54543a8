#include "RecoverCommand.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Cli.h"
#include "Json.h"
#include "Options.h"
#include "UnsavedCommand.h"
#include "persistence/PatchJournal.h"
#include "persistence/PatchJournalRecovery.h"

namespace quorin::cli {
namespace {

using persistence::PatchJournal;
using persistence::PatchJournalRecovery;

const char* verdictText(PatchJournalRecovery::Verdict verdict) {
  switch (verdict) {
    case PatchJournalRecovery::Verdict::targetMissing: return "target is gone: the journal is deleted";
    case PatchJournalRecovery::Verdict::targetInaccessible:
      return "target cannot be examined now: the journal is kept";
    case PatchJournalRecovery::Verdict::completed: return "the save completed: the journal is deleted";
    case PatchJournalRecovery::Verdict::neverStarted: return "the save never started: the journal is deleted";
    case PatchJournalRecovery::Verdict::torn: return "torn: restore recommended (--restore)";
    case PatchJournalRecovery::Verdict::changedExternally:
      return "changed since the interruption: restoring would overwrite those changes";
  }
  return "";
}

const char* verdictName(PatchJournalRecovery::Verdict verdict) {
  switch (verdict) {
    case PatchJournalRecovery::Verdict::targetMissing: return "targetMissing";
    case PatchJournalRecovery::Verdict::targetInaccessible: return "targetInaccessible";
    case PatchJournalRecovery::Verdict::completed: return "completed";
    case PatchJournalRecovery::Verdict::neverStarted: return "neverStarted";
    case PatchJournalRecovery::Verdict::torn: return "torn";
    case PatchJournalRecovery::Verdict::changedExternally: return "changedExternally";
  }
  return "";
}

// What happened to one journal, for the text and the JSON output alike.
struct Handled {
  std::string path;
  std::string target;
  size_t regions = 0;
  std::optional<PatchJournalRecovery::Verdict> verdict;  // absent when the journal was not examined
  std::string action;  // "deleted", "restored", "discarded", "kept", "skipped" (its save is running)
  std::string error;   // set when reading or restoring failed
};

// `named`: the user gave the path (a missing one is then a mistake, not a
// journal its save removed since it was listed).
Handled handle(const std::filesystem::path& path, bool named, bool restore, bool discard) {
  Handled h;
  h.path = path.string();
  // Held while the journal is examined and acted on: a save in progress holds it too.
  const auto lock = PatchJournal::lock(path);
  if (!lock) {
    using Kind = PatchJournal::LockFailure::Kind;
    if (lock.error().kind == Kind::gone && named) {
      h.error = persistence::PatchJournalError::openFailed(h.path, ENOENT).describe();
    } else if (lock.error().kind == Kind::failed) {
      h.error = "patch journal at " + h.path + " " + lock.error().describe();
    } else {
      h.action = lock.error().kind == Kind::inUse ? "skipped" : "gone";
    }
    return h;
  }
  auto journal = PatchJournal::read(path);
  if (!journal) {
    h.error = journal.error().describe();
    return h;
  }
  h.target = journal->targetPath;
  h.regions = journal->entries.size();
  const auto assessment = PatchJournalRecovery::assess(*journal);
  h.verdict = assessment.verdict;
  if (assessment.verdict == PatchJournalRecovery::Verdict::targetInaccessible) {
    h.error = assessment.problem;
    h.action = "kept";
  } else if (!assessment.prompt) {
    PatchJournal::remove(path);
    h.action = "deleted";
  } else if (restore) {
    if (PatchJournalRecovery::rollBack(*journal, *lock)) {
      h.action = "restored";
    } else {
      h.error = PatchJournalRecovery::rollbackFailure(*journal).text;
      h.action = "kept";
    }
  } else if (discard) {
    PatchJournal::remove(path);
    h.action = "discarded";
  } else {
    h.action = "kept";
  }
  return h;
}

void printText(const Handled& h, std::ostream& out) {
  if (h.action == "skipped") {
    out << h.path << "\n  skipped: in use by a running save\n";
    return;
  }
  if (!h.verdict) return;  // gone, or unreadable: only the error, on stderr
  out << h.path << "\n  target: " << h.target << "\n  regions: " << h.regions
      << "\n  verdict: " << verdictText(*h.verdict) << '\n';
  if (h.action == "restored") out << "  restored\n";
  if (h.action == "discarded") out << "  discarded; the file is left as it is\n";
}

void printJson(const std::vector<Handled>& all, std::ostream& out) {
  JsonWriter json(out);
  json.beginObject().key("journals").beginArray();
  for (const Handled& h : all) {
    json.beginObject().field("path", h.path);
    if (h.verdict) {
      json.field("target", h.target)
          .field("regions", h.regions)
          .field("verdict", verdictName(*h.verdict))
          .field("action", h.action);
    } else if (!h.action.empty()) {
      json.field("action", h.action);
    }
    json.key("error");
    h.error.empty() ? json.null() : json.value(h.error);
    json.endObject();
  }
  json.endArray().endObject();
  out << '\n';
}

}  // namespace

int runRecover(std::span<const std::string> args, std::ostream& out, std::ostream& err) {
  static constexpr std::array<OptionSpec, 5> kOptions = {
      {{"--restore"}, {"--discard"}, {"--json"}, {"--unsaved"}, {"--restore-to", true}}};
  const auto parsed = parseCommandLine("recover", args, kOptions, 0, SIZE_MAX, err);
  if (!parsed) return kExitFailure;
  if (parsed->has("--unsaved") || parsed->has("--restore-to")) return runUnsaved(*parsed, out, err);
  if (parsed->has("--restore") && parsed->has("--discard")) {
    printUsageError(err, "recover", "--restore and --discard exclude each other");
    return kExitFailure;
  }
  const bool asJson = parsed->has("--json");
  std::vector<std::filesystem::path> journals(parsed->positionals.begin(), parsed->positionals.end());
  const bool named = !journals.empty();
  if (!named) journals = PatchJournal::listPending();
  if (journals.empty() && !asJson) {
    out << "no pending patch journals\n";
    return kExitOk;
  }
  std::vector<Handled> all;
  int status = kExitOk;
  for (const auto& path : journals) {
    all.push_back(handle(path, named, parsed->has("--restore"), parsed->has("--discard")));
    const Handled& h = all.back();
    if (!asJson) printText(h, out);
    if (!h.error.empty()) {
      err << "quorin-cli: " << h.error << '\n';
      status = kExitFailure;
    }
  }
  if (asJson) printJson(all, out);
  return status;
}

}  // namespace quorin::cli
