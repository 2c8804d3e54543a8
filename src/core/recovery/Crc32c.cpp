#include "recovery/Crc32c.h"

#include <array>

namespace quorin::recovery {
namespace {

constexpr std::array<uint32_t, 256> makeTable() {
  std::array<uint32_t, 256> table{};
  for (uint32_t i = 0; i < 256; ++i) {
    uint32_t c = i;
    for (int k = 0; k < 8; ++k) c = c & 1 ? 0x82F63B78u ^ (c >> 1) : c >> 1;
    table[i] = c;
  }
  return table;
}

constexpr auto kTable = makeTable();

}  // namespace

uint32_t crc32c(std::string_view bytes, uint32_t crc) {
  crc = ~crc;
  for (const char byte : bytes) crc = kTable[(crc ^ static_cast<uint8_t>(byte)) & 0xFF] ^ (crc >> 8);
  return ~crc;
}

}  // namespace quorin::recovery
