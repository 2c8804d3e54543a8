#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "text/DetectedEncoding.h"

namespace quorin::text {

// How an encoding's text is cut into code units: bytes for UTF-8 and the
// legacy encodings, 16- or 32-bit units in either byte order for UTF-16/32.
struct UnitLayout {
  size_t width;
  bool bigEndian;
};

inline UnitLayout unitLayout(DetectedEncoding encoding) {
  switch (encoding) {
    case DetectedEncoding::utf16LE: return {2, false};
    case DetectedEncoding::utf16BE: return {2, true};
    case DetectedEncoding::utf32LE: return {4, false};
    case DetectedEncoding::utf32BE: return {4, true};
    default: return {1, false};
  }
}

// The code unit at bytes[i]; bytes must hold layout.width bytes from i.
inline uint32_t readUnit(std::span<const uint8_t> bytes, size_t i, UnitLayout layout) {
  uint32_t value = 0;
  for (size_t k = 0; k < layout.width; ++k) {
    const uint32_t b = bytes[i + k];
    value |= layout.bigEndian ? b << (8 * (layout.width - 1 - k)) : b << (8 * k);
  }
  return value;
}

}  // namespace quorin::text
