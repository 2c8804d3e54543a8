#pragma once

#include <chrono>
#include <expected>
#include <filesystem>
#include <optional>
#include <string>

#include "bookmarks/Sidecar.h"
#include "persistence/SmallFile.h"

namespace quorin::bookmarks {

// What the store knows of a file on disk now, to find its sidecar.
// Absent when the file cannot be read (then there is nothing to find).
std::optional<SidecarFile> describeFile(const std::string& path);

// A sidecar found for a file, and the name it was found under (an older name
// is replaced by the current one on the next write).
struct FoundSidecar {
  Sidecar sidecar;
  std::filesystem::path foundAt;
  // The file is the one the sidecar describes, unchanged: its lines can be trusted.
  bool unchanged = false;
};

// The sidecars of the user's files, one JSON file per file under one
// directory ($XDG_DATA_HOME/Quorin/sidecars), never beside the user's file.
// A file's sidecar is named after its device, inode and path hash, and is
// found again by the first that still matches:
//   1. device and inode (the file, perhaps renamed);
//   2. path (rewritten in place by another program, rotated);
//   3. the hash of its first 4 KiB (a copy, or a rename across file systems;
//      reads every sidecar, which are few).
// Whatever matched, the file may have changed: re-anchoring (Reanchor.h)
// checks every line against its hash unless `unchanged`.
// A sidecar that does not parse is moved to corrupt/ with a "[Quorin] " line.
//
// Thread-safety: none; the directory may be shared by several processes
// (each write is atomic; the last writer wins). Failure: find() never fails
// (nothing found), write() returns the system call that failed.
class SidecarStore {
 public:
  explicit SidecarStore(std::filesystem::path directory) : directory_(std::move(directory)) {}
  // $XDG_DATA_HOME/Quorin/sidecars (default ~/.local/share/Quorin/sidecars).
  static std::expected<std::filesystem::path, std::string> defaultDirectory();

  const std::filesystem::path& directory() const { return directory_; }
  static std::string fileName(const SidecarFile& file);

  std::optional<FoundSidecar> find(const SidecarFile& file) const;
  // Writes `sidecar` under the name its file gives, and removes `replacing`
  // when that is another name (the file was renamed or replaced).
  std::expected<void, persistence::SmallFileError> write(const Sidecar& sidecar,
                                                         const std::filesystem::path& replacing = {});
  // Deletes the sidecars of files that are gone and that were last written
  // `age` or longer ago; returns how many went.
  int prune(std::chrono::system_clock::time_point now, std::chrono::hours age = std::chrono::hours(24 * 90));

 private:
  std::optional<Sidecar> read(const std::filesystem::path& path) const;

  std::filesystem::path directory_;
};

}  // namespace quorin::bookmarks
