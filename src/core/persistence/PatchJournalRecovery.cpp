#include "persistence/PatchJournalRecovery.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

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
  return {"A save of \u201c" + fileName(journal.targetPath) + "\u201d was interrupted",
          "The file was left partially written (" + std::to_string(n) + " region" + (n == 1 ? "" : "s") +
              " affected) — its content currently matches neither the previous save nor the interrupted one. "
              "Restore rolls it back to the last fully saved content.",
          {kRestore, kKeepAsIs},
          0};
}

RecoveryPrompt changedPrompt(const PatchJournal::ParsedJournal& journal) {
  return {
      "Previous save may have been interrupted",
      "Quorin was interrupted while saving \u201c" + fileName(journal.targetPath) +
          "\u201d, but the file's content no longer matches what the rollback journal recorded — it may have "
          "been modified externally since. Restoring would overwrite those changes with the older content.",
      {kSkipRestore, kRestoreAnyway},
      0};
}

RecoveryPrompt rollbackFailedPrompt(const PatchJournal::ParsedJournal& journal) {
  return {"Couldn\u2019t restore \u201c" + fileName(journal.targetPath) + "\u201d",
          "The rollback could not be written (the file may be read-only or on a failing disk). Nothing was "
          "deleted — "
          "the recovery data is kept, and Quorin will offer to restore again on the next launch. The file "
          "remains "
          "partially written until then.",
          {"OK"},
          0};
}

// Reads exactly `size` bytes at `offset`; false on a short read or an error.
bool readRegion(FileIo& io, int fd, uint64_t offset, size_t size, std::string& out) {
  out.assign(size, '\0');
  size_t done = 0;
  while (done < size) {
    const ssize_t n = io.pread(fd, out.data() + done, size - done, static_cast<off_t>(offset + done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

std::vector<std::optional<PatchJournalRecovery::RegionState>> PatchJournalRecovery::classify(
    const PatchJournal::ParsedJournal& journal, FileIo& io) {
  std::vector<std::optional<RegionState>> states(journal.entries.size());
  const int fd = io.open(journal.targetPath.c_str(), O_RDONLY, 0);
  if (fd < 0) return states;
  std::string bytes;
  for (size_t i = 0; i < journal.entries.size(); ++i) {
    const auto& e = journal.entries[i];
    if (!readRegion(io, fd, e.offset, e.insertedBytes.size(), bytes)) continue;
    if (bytes == e.insertedBytes) {
      states[i] = RegionState::matchesPostImage;
    } else if (bytes == e.originalBytes) {
      states[i] = RegionState::matchesPreImage;
    }
  }
  io.close(fd);
  return states;
}

PatchJournalRecovery::Assessment PatchJournalRecovery::assess(const PatchJournal::ParsedJournal& journal,
                                                              FileIo& io) {
  struct stat st;
  if (::stat(journal.targetPath.c_str(), &st) != 0) return {Verdict::targetMissing, {}, std::nullopt};
  Assessment a{Verdict::completed, classify(journal, io), std::nullopt};
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
  Assessment a = assess(journal, io);
  if (!a.prompt) PatchJournal::remove(journal.url);
  return a.prompt;
}

std::optional<RecoveryPrompt> PatchJournalRecovery::respond(const PatchJournal::ParsedJournal& journal,
                                                            const std::string& button, FileIo& io) {
  if (button == kRestore || button == kRestoreAnyway) {
    if (rollBack(journal, io)) return std::nullopt;
    return rollbackFailedPrompt(journal);
  }
  PatchJournal::remove(journal.url);  // Keep As-Is, Skip Restore
  return std::nullopt;
}

bool PatchJournalRecovery::rollBack(const PatchJournal::ParsedJournal& journal, FileIo& io) {
  const int fd = io.open(journal.targetPath.c_str(), O_WRONLY, 0);
  if (fd < 0) {
    base::logLine("rollback of " + journal.targetPath + " failed: cannot open it for writing");
    return false;
  }
  bool ok = true;
  for (const auto& e : journal.entries) {
    size_t done = 0;
    while (ok && done < e.originalBytes.size()) {
      const ssize_t n = io.pwrite(fd, e.originalBytes.data() + done, e.originalBytes.size() - done,
                                  static_cast<off_t>(e.offset + done));
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0)
        ok = false;  // a write of nothing would loop forever: a failure like any other
      else
        done += static_cast<size_t>(n);
    }
    if (!ok) break;
  }
  if (ok && durableFlush(io, fd) != 0) ok = false;
  io.close(fd);
  if (ok) {
    PatchJournal::remove(journal.url);
  } else {
    base::logLine("rollback of " + journal.targetPath + " failed; the patch journal is kept");
  }
  return ok;
}

}  // namespace quorin::persistence
