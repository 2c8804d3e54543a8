#pragma once

#include <cstdint>
#include <expected>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/UniqueFd.h"
#include "persistence/FileIo.h"
#include "persistence/PatchJournalError.h"
#include "storage/FileIdentity.h"

namespace quorin::persistence {

// The rollback journal of an in-place save: every region's pre-image and
// post-image, made durable before the first byte of the target changes and
// removed once the patched target has been flushed. A journal found at
// launch means a save was interrupted (PatchJournalRecovery).
//
// File ("<UUID>-patchjournal" in the scratch directory), little-endian, no
// padding: "QRPJ", u32 version 2, u32 path length, the target path (UTF-8),
// u64 dev, inode, size, mtime seconds, mtime nanoseconds, u32 entry count,
// then per entry u64 offset, u32 length + pre-image, u32 length + post-image.
//
// Commit point: write() returns only after the journal's bytes and its
// directory entry have been flushed; until then the caller must not touch
// the target.
//
// Locking: a save holds an exclusive flock on its journal from the moment
// the file exists until the save ends, so that another Quorin or
// `quorin-cli recover` never mistakes a live journal (written, target not
// yet patched, or mid-patch) for the remains of a crash. Recovery and
// rollback take the same lock without waiting and leave alone a journal
// they cannot lock.
//
// Thread-safety: stateless functions, any thread.
class PatchJournal {
 public:
  struct Entry {
    uint64_t fileOffset = 0;  // in the target file (a document offset plus the file's content start)
    std::string originalBytes;
    std::string insertedBytes;  // same length as originalBytes
    bool operator==(const Entry&) const = default;
  };
  struct ParsedJournal {
    std::filesystem::path url;  // the journal file
    std::string targetPath;
    storage::FileIdentity identity;
    std::vector<Entry> entries;
    bool operator==(const ParsedJournal&) const = default;
  };

  // Exclusive hold on one journal, released when this goes.
  class Lock {
   public:
    Lock(Lock&&) = default;
    Lock& operator=(Lock&&) = default;

   private:
    friend class PatchJournal;
    explicit Lock(base::UniqueFd fd) : fd_(std::move(fd)) {}
    base::UniqueFd fd_;
  };
  struct LockFailure {
    enum class Kind { inUse, gone, failed };
    Kind kind;
    int err = 0;  // failed
    std::string describe() const;
  };
  // A journal just written, locked for as long as the save keeps this.
  struct Written {
    std::filesystem::path url;
    Lock lock;
  };

  static constexpr uint32_t kVersion = 2;
  static constexpr std::string_view kNameSuffix = "-patchjournal";

  // Writes a new journal in `directory` (the scratch directory when absent,
  // created if missing) and returns its path with its lock held.
  static std::expected<Written, PatchJournalError> write(
      const std::string& targetPath, const storage::FileIdentity& identity, std::span<const Entry> entries,
      FileIo& io = FileIo::system(), std::optional<std::filesystem::path> directory = std::nullopt);
  // Deletes a journal; errors are ignored.
  static void remove(const std::filesystem::path& url);
  static std::expected<ParsedJournal, PatchJournalError> read(const std::filesystem::path& url);
  // Takes a journal's lock without waiting: `inUse` while its save runs,
  // `gone` once that save has removed it.
  static std::expected<Lock, LockFailure> lock(const std::filesystem::path& url,
                                               FileIo& io = FileIo::system());
  // The journal files in `directory` (the scratch directory when absent), by name.
  static std::vector<std::filesystem::path> listPending(
      std::optional<std::filesystem::path> directory = std::nullopt);

  // The file's bytes, and back; decode detects every malformation.
  static std::string encode(const std::string& targetPath, const storage::FileIdentity& identity,
                            std::span<const Entry> entries);
  static std::expected<ParsedJournal, PatchJournalError> decode(std::string_view bytes,
                                                                const std::filesystem::path& url);
};

}  // namespace quorin::persistence
