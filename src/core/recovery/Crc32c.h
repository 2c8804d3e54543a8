#pragma once

#include <cstdint>
#include <string_view>

namespace quorin::recovery {

// CRC-32C (Castagnoli), as iSCSI and ext4 use it; `crc` continues a previous
// call's result (0 to start).
uint32_t crc32c(std::string_view bytes, uint32_t crc = 0);

}  // namespace quorin::recovery
