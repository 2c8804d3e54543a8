#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

namespace quorin::persistence {

// What saving asks of the volume a file lives on, behind a seam so tests can
// play a network share or a full disk.
class VolumeInfo {
 public:
  virtual ~VolumeInfo() = default;
  // False on network and user-space file systems (NFS, SMB/CIFS, FUSE, 9p),
  // where an in-place write under flock guarantees nothing to other clients.
  virtual bool isLocal(const std::filesystem::path& file) const = 0;
  // Bytes an unprivileged writer may still use (statvfs f_bavail × f_frsize);
  // absent when the volume does not say.
  virtual std::optional<uint64_t> availableBytes(const std::filesystem::path& directory) const = 0;

  static const VolumeInfo& system();
};

}  // namespace quorin::persistence
