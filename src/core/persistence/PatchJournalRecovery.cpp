#include "persistence/PatchJournalRecovery.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "base/Errno.h"
#include "base/Log.h"

namespace quorin::persistence {
namespace {

constexpr const char* kRestore = "Restore";
constexpr const char* kKeepAsIs = "Keep As-Is";
constexpr const char* kSkipRestore = "Skip Restore";
constexpr const char* kRestoreAnyway = "Restore Anyway";

std::string fileName(const std::string& path) { return std::filesystem::path(path).filename().string(); }

RecoveryPrompt tornPrompt(const PatchJournal::ParsedJournal& journal) {
  const size_t n = journal.entries.size();
  return {.title = "A save of \u201c" + fileName(journal.targetPath) + "\u201d was interrupted",
          .text = "The file was left partially written (" + std::to_string(n) + " region" +
                  (n == 1 ? "" : "s") +
                  " affected) — its content currently matches neither the previous save nor the interrupted "
                  "one. Restore rolls it back to the last fully saved content.",
          .buttons = {kRestore, kKeepAsIs},
          .defaultButton = 0};
}

RecoveryPrompt changedPrompt(const PatchJournal::ParsedJournal& journal) {
  return {.title = "Previous save may have been interrupted",
          .text = "Quorin was interrupted while saving \u201c" + fileName(journal.targetPath) +
                  "\u201d, but the file's content no longer matches what the rollback journal recorded — it "
                  "may have been modified externally since. Restoring would overwrite those changes with the "
                  "older content.",
          .buttons = {kSkipRestore, kRestoreAnyway},
          .defaultButton = 0};
}

RecoveryPrompt rollbackFailedPrompt(const PatchJournal::ParsedJournal& journal) {
  return {.title = "Couldn't restore \u201c" + fileName(journal.targetPath) + "\u201d",
          .text =
              "The rollback could not be written (the file may be read-only or on a failing disk). "
              "Nothing was deleted — the recovery data is kept, and Quorin will offer to restore again "
              "on the next launch. The file remains partially written until then.",
          .buttons = {"OK"},
          .defaultButton = 0};
}

void logKept(const PatchJournal::ParsedJournal& journal, const std::string& why) {
  base::logLine("patch journal " + journal.url.string() + " for " + journal.targetPath + " kept: " + why);
}

}  // namespace

std::vector<std::optional<PatchJournalRecovery::RegionState>> PatchJournalRecovery::classify(
    const PatchJournal::ParsedJournal& journal, FileIo& io) {
  std::vector<std::optional<RegionState>> states(journal.entries.size());
  const base::UniqueFd fd = openFd(io, journal.targetPath.c_str(), O_RDONLY);
  if (!fd) return states;
  std::string bytes;
  for (size_t i = 0; i < journal.entries.size(); ++i) {
    const auto& e = journal.entries[i];
    bytes.assign(e.insertedBytes.size(), '\0');
    if (!preadAll(io, fd.get(), bytes.data(), bytes.size(), static_cast<off_t>(e.fileOffset)).complete())
      continue;
    if (bytes == e.insertedBytes) {
      states[i] = RegionState::matchesPostImage;
    } else if (bytes == e.originalBytes) {
      states[i] = RegionState::matchesPreImage;
    }
  }
  return states;
}

PatchJournalRecovery::Assessment PatchJournalRecovery::assess(const PatchJournal::ParsedJournal& journal,
                                                              FileIo& io) {
  struct stat st;
  if (::stat(journal.targetPath.c_str(), &st) != 0) {
    if (errno == ENOENT) return {.verdict = Verdict::targetMissing};
    return {.verdict = Verdict::targetInaccessible,
            .problem = "stat(" + journal.targetPath + ") failed: " + base::errnoText(errno)};
  }
  Assessment a{.verdict = Verdict::completed, .regions = classify(journal, io)};
  const auto all = [&](std::optional<RegionState> s) {
    return std::all_of(a.regions.begin(), a.regions.end(), [&](const auto& r) { return r == s; });
  };
  const bool sameFile = static_cast<uint64_t>(st.st_dev) == journal.identity.device &&
                        static_cast<uint64_t>(st.st_ino) == journal.identity.inode;
  if (all(RegionState::matchesPostImage)) {
    a.verdict = Verdict::completed;
  } else if (all(RegionState::matchesPreImage)) {
    a.verdict = Verdict::neverStarted;
  } else if (sameFile && std::none_of(a.regions.begin(), a.regions.end(), [](const auto& r) { return !r; })) {
    a.verdict = Verdict::torn;
    a.prompt = tornPrompt(journal);
  } else {
    a.verdict = Verdict::changedExternally;
    a.prompt = changedPrompt(journal);
  }
  return a;
}

RecoveryPrompt PatchJournalRecovery::rollbackFailure(const PatchJournal::ParsedJournal& journal) {
  return rollbackFailedPrompt(journal);
}

std::optional<RecoveryPrompt> PatchJournalRecovery::begin(const PatchJournal::ParsedJournal& journal,
                                                          FileIo& io) {
  const auto lock = PatchJournal::lock(journal.url, io);
  if (!lock) {
    if (lock.error().kind != PatchJournal::LockFailure::Kind::gone) logKept(journal, lock.error().describe());
    return std::nullopt;
  }
  Assessment a = assess(journal, io);
  if (a.verdict == Verdict::targetInaccessible) {
    logKept(journal, a.problem);
    return std::nullopt;
  }
  if (!a.prompt) PatchJournal::remove(journal.url);
  return a.prompt;
}

std::optional<RecoveryPrompt> PatchJournalRecovery::respond(const PatchJournal::ParsedJournal& journal,
                                                            const std::string& button, FileIo& io) {
  if (button == kRestore || button == kRestoreAnyway) {
    if (rollBack(journal, io)) return std::nullopt;
    return rollbackFailedPrompt(journal);
  }
  // Keep As-Is, Skip Restore: the journal goes, unless a save is using it.
  if (const auto lock = PatchJournal::lock(journal.url, io)) PatchJournal::remove(journal.url);
  return std::nullopt;
}

bool PatchJournalRecovery::rollBack(const PatchJournal::ParsedJournal& journal, FileIo& io) {
  const auto lock = PatchJournal::lock(journal.url, io);
  if (!lock) {
    logKept(journal, "no rollback: " + lock.error().describe());
    return false;
  }
  return rollBack(journal, *lock, io);
}

bool PatchJournalRecovery::rollBack(const PatchJournal::ParsedJournal& journal, const PatchJournal::Lock&,
                                    FileIo& io) {
  const base::UniqueFd fd = openFd(io, journal.targetPath.c_str(), O_WRONLY);
  if (!fd) {
    logKept(journal, "rollback failed: cannot open the file for writing: " + base::errnoText(errno));
    return false;
  }
  for (const auto& e : journal.entries) {
    const auto t = pwriteAll(io, fd.get(), e.originalBytes, static_cast<off_t>(e.fileOffset));
    if (!t.complete()) {
      logKept(journal, "rollback failed: " + base::errnoText(t.error));
      return false;
    }
  }
  if (durableFlush(io, fd.get()) != 0) {
    logKept(journal, "rollback failed: fsync: " + base::errnoText(errno));
    return false;
  }
  PatchJournal::remove(journal.url);
  return true;
}

}  // namespace quorin::persistence
