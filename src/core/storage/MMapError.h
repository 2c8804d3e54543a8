#pragma once

#include <string>

namespace quorin::storage {

// Why a file could not be mapped. describe() renders the text shown to the
// user and written to the log.
struct MMapError {
  enum class Kind { openFailed, statFailed, mmapFailed, empty, notRegularFile };

  Kind kind;
  std::string path;  // openFailed and notRegularFile
  int err = 0;       // errno; not used by `empty`

  static MMapError openFailed(std::string path, int err) { return {Kind::openFailed, std::move(path), err}; }
  static MMapError statFailed(int err) { return {Kind::statFailed, {}, err}; }
  static MMapError mmapFailed(int err) { return {Kind::mmapFailed, {}, err}; }
  static MMapError empty() { return {Kind::empty, {}, 0}; }
  // A directory, pipe or device: nothing to map.
  static MMapError notRegularFile(std::string path) { return {Kind::notRegularFile, std::move(path), 0}; }

  // "open(<path>) failed: <strerror>", "fstat failed: …", "mmap failed: …", "file is empty",
  // "<path> is not a regular file".
  std::string describe() const;

  bool operator==(const MMapError&) const = default;
};

}  // namespace quorin::storage
