#include "text/BinarySniff.h"

#include <algorithm>

namespace quorin::text {
namespace {

bool isTextControl(uint8_t byte) {
  return byte == '\t' || byte == '\n' || byte == '\r' || byte == '\f' || byte == '\v' || byte == 0x1B;
}

}  // namespace

bool looksBinary(std::span<const uint8_t> sample) {
  if (std::find(sample.begin(), sample.end(), uint8_t{0}) != sample.end()) return true;
  const auto controls = std::count_if(sample.begin(), sample.end(), [](uint8_t byte) {
    return (byte < 0x20 && !isTextControl(byte)) || byte == 0x7F;
  });
  return static_cast<size_t>(controls) * 10 > sample.size();
}

}  // namespace quorin::text
