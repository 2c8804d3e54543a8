#pragma once

#include <expected>
#include <filesystem>
#include <string>
#include <vector>

#include "base/UniqueFd.h"
#include "persistence/FileIo.h"
#include "recovery/JournalFormat.h"

namespace quorin::recovery {

// Why a journal write failed: the call and errno.
struct JournalWriteError {
  std::string operation;
  int error = 0;
  std::string describe() const;
};

// One document's journal of unsaved edits, open for appending. The file
// ("unsaved-<hex>.qrj" in `directory`) is created with its header flushed
// together with its directory entry, and held under an exclusive flock for
// the object's life: a journal whose lock is free belongs to nobody.
//
// append() is one write(2) of one record: once it returns, the record
// survives the death of the process. flush() makes it survive a power cut.
// Lifetime: the file stays when the object goes (discard() removes it).
// Thread-safety: one thread.
class RecoveryJournal {
 public:
  static std::expected<RecoveryJournal, JournalWriteError> create(const std::filesystem::path& directory,
                                                                  const JournalHeader& header,
                                                                  persistence::FileIo& io);
  RecoveryJournal(RecoveryJournal&&) = default;
  RecoveryJournal& operator=(RecoveryJournal&&) = default;

  std::expected<void, JournalWriteError> append(const std::vector<SiteView>& sites);
  // Records already framed (read back from another journal of the same edits).
  std::expected<void, JournalWriteError> appendRaw(std::string_view records);
  std::expected<void, JournalWriteError> flush();
  // Deletes the file (still locked, so nobody reads it half gone).
  void discard();

  const std::filesystem::path& path() const { return path_; }
  int64_t bytesWritten() const { return bytes_; }
  int64_t recordCount() const { return records_; }
  bool dirty() const { return dirty_; }

 private:
  RecoveryJournal(std::filesystem::path path, base::UniqueFd fd, persistence::FileIo& io)
      : path_(std::move(path)), fd_(std::move(fd)), io_(&io) {}
  std::expected<void, JournalWriteError> writeAll(std::string_view bytes);

  std::filesystem::path path_;
  base::UniqueFd fd_;
  persistence::FileIo* io_;
  int64_t bytes_ = 0;
  int64_t records_ = 0;
  bool dirty_ = false;  // written since the last flush
};

}  // namespace quorin::recovery
