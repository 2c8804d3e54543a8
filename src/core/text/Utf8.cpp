#include "text/Utf8.h"

#include <cstring>

namespace quorin::text {

Utf8Step readUtf8(std::span<const uint8_t> bytes, size_t i) {
  const uint8_t lead = bytes[i];
  if (lead < 0x80) return {Utf8Step::Kind::valid, 1, lead};
  uint8_t need;
  uint8_t lo = 0x80, hi = 0xBF;  // allowed range of the first continuation byte
  char32_t cp;
  if (lead >= 0xC2 && lead <= 0xDF) {
    need = 1;
    cp = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    need = 2;
    cp = lead & 0x0F;
    if (lead == 0xE0) lo = 0xA0;  // overlong
    if (lead == 0xED) hi = 0x9F;  // surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    need = 3;
    cp = lead & 0x07;
    if (lead == 0xF0) lo = 0x90;  // overlong
    if (lead == 0xF4) hi = 0x8F;  // past U+10FFFF
  } else {
    return {Utf8Step::Kind::invalid, 1, 0};
  }
  for (uint8_t k = 1; k <= need; ++k) {
    if (i + k >= bytes.size()) return {Utf8Step::Kind::truncated, k, 0};
    const uint8_t b = bytes[i + k];
    const bool ok = k == 1 ? (b >= lo && b <= hi) : (b >= 0x80 && b <= 0xBF);
    if (!ok) return {Utf8Step::Kind::invalid, k, 0};
    cp = (cp << 6) | (b & 0x3F);
  }
  return {Utf8Step::Kind::valid, static_cast<uint8_t>(need + 1), cp};
}

size_t validUtf8Prefix(std::span<const uint8_t> bytes) {
  size_t i = 0;
  const size_t n = bytes.size();
  while (i < n) {
    if (i + 8 <= n) {
      uint64_t word;
      std::memcpy(&word, bytes.data() + i, 8);
      if ((word & 0x8080808080808080ULL) == 0) {
        i += 8;
        continue;
      }
    }
    if (bytes[i] < 0x80) {
      ++i;
      continue;
    }
    const Utf8Step step = readUtf8(bytes, i);
    if (step.kind != Utf8Step::Kind::valid) return i;
    i += step.length;
  }
  return n;
}

}  // namespace quorin::text
