#include "persistence/VolumeInfo.h"

#include <sys/statfs.h>
#include <sys/statvfs.h>

namespace quorin::persistence {
namespace {

// statfs f_type values (linux/magic.h) of file systems whose data lives elsewhere.
constexpr long kNfs = 0x6969;
constexpr long kSmb = 0x517B;
constexpr long kCifs = 0xFF534D42;
constexpr long kSmb2 = 0xFE534D42;
constexpr long kFuse = 0x65735546;
constexpr long kV9fs = 0x01021997;

class SystemVolumeInfo final : public VolumeInfo {
 public:
  bool isLocal(const std::filesystem::path& file) const override {
    struct statfs fs;
    if (::statfs(file.c_str(), &fs) != 0) return true;  // unknown: the other checks still protect the patch
    const long type = static_cast<long>(fs.f_type);
    return type != kNfs && type != kSmb && type != kCifs && type != kSmb2 && type != kFuse && type != kV9fs;
  }
  std::optional<uint64_t> availableBytes(const std::filesystem::path& directory) const override {
    struct statvfs vfs;
    if (::statvfs(directory.c_str(), &vfs) != 0) return std::nullopt;
    return static_cast<uint64_t>(vfs.f_bavail) * static_cast<uint64_t>(vfs.f_frsize);
  }
};

}  // namespace

const VolumeInfo& VolumeInfo::system() {
  static const SystemVolumeInfo* const info = new SystemVolumeInfo;  // never destroyed, as FileIo::system()
  return *info;
}

}  // namespace quorin::persistence
