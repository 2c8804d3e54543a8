#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>

namespace quorin::storage {

// A file on disk as it was at a moment: recorded at open, compared before an
// in-place save and written into the patch journal, so that a file replaced,
// rotated or rewritten behind our back is noticed.
struct FileIdentity {
  uint64_t device = 0;
  uint64_t inode = 0;
  int64_t size = 0;
  int64_t mtimeSeconds = 0;
  int64_t mtimeNanoseconds = 0;

  static FileIdentity fromStat(const struct stat& st) {
    return {static_cast<uint64_t>(st.st_dev), static_cast<uint64_t>(st.st_ino),
            static_cast<int64_t>(st.st_size), static_cast<int64_t>(st.st_mtim.tv_sec),
            static_cast<int64_t>(st.st_mtim.tv_nsec)};
  }
  // The identity of `path` now (following symlinks); absent when it cannot be stat'ed.
  static std::optional<FileIdentity> ofPath(const std::string& path) {
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) return std::nullopt;
    return fromStat(st);
  }
  bool operator==(const FileIdentity&) const = default;
};

}  // namespace quorin::storage
