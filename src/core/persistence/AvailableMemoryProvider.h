#pragma once

#include <cstdint>
#include <string_view>

namespace quorin::persistence {

// The number of bytes the host could make available now.
class AvailableMemoryProvider {
 public:
  virtual ~AvailableMemoryProvider() = default;
  virtual int64_t availableBytes() const = 0;
};

// Reads /proc/meminfo: MemFree + Active(file) + Inactive(file) + SReclaimable.
// That is free memory plus everything the kernel can drop without writing to
// swap: the page cache (file-backed pages) and reclaimable kernel caches. Not
// MemAvailable, which holds back the low watermarks and half of the cache as
// a conservative estimate for starting new programs; the undo cap is a share
// of this figure anyway. 0 when the file cannot be read.
class HostStatisticsMemoryProvider final : public AvailableMemoryProvider {
 public:
  int64_t availableBytes() const override;
};

// The sum above from the text of a /proc/meminfo; 0 when no field is found.
int64_t reclaimableFromMeminfo(std::string_view meminfo);

}  // namespace quorin::persistence
