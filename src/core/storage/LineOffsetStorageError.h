#pragma once

#include <string>

namespace quorin::storage {

// Why a disk-backed line-offset store could not be created. describe()
// renders the text the line index shows as the reason it stayed in memory.
struct LineOffsetStorageError {
  enum class Kind { open, ftruncate, mmap, preallocate };

  Kind kind;
  int err = 0;       // errno of the failed call
  std::string path;  // open only

  // "open(<path>) failed: <strerror>", "ftruncate failed: …", "mmap (line index) failed: …",
  // "preallocate failed: …".
  std::string describe() const;

  bool operator==(const LineOffsetStorageError&) const = default;
};

}  // namespace quorin::storage
