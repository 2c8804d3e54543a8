#pragma once

#include <expected>
#include <filesystem>
#include <memory>
#include <string>

#include "base/UniqueFd.h"

namespace quorin::storage {

// A private per-document directory for scratch files (such as the
// disk-backed line index), inside the per-user scratch root
// $XDG_DATA_HOME/Quorin/scratch (default ~/.local/share/Quorin/scratch).
//
// Each live directory, named "doc-<random hex>", holds an exclusive flock on
// its "owner.lock" for as long as its object lives. The kernel drops that
// lock when the owning process dies however it dies, so a directory whose
// lock can be taken belongs to nobody — unlike a recorded PID, which another
// process may have been given since.
//
// Lifetime: the directory and everything in it are removed on destruction.
// Thread-safety: the object is immutable; the static functions may be called
// from any thread.
class ScratchDirectory {
 public:
  // The scratch root, created (mode 0700, like its Quorin parent) if missing.
  static std::expected<std::filesystem::path, std::string> root();

  // A fresh, locked per-document directory; the error text names what failed.
  static std::expected<std::unique_ptr<ScratchDirectory>, std::string> createForDocument();

  // Removes the "doc-*" directories that crashed runs left behind: those
  // whose lock is free, and those without a lock file that are older than a
  // minute (younger ones may still be being set up). Nothing else in the root
  // is touched. Called once at start; returns how many were removed.
  static int cleanStaleDocumentDirectories();

  ~ScratchDirectory();
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  ScratchDirectory(std::filesystem::path path, base::UniqueFd lock)
      : path_(std::move(path)), lock_(std::move(lock)) {}

  const std::filesystem::path path_;
  const base::UniqueFd lock_;
};

}  // namespace quorin::storage
