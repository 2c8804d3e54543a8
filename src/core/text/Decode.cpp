#include "text/Decode.h"

#include "text/CodeUnits.h"

namespace quorin::text {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

// Length of the valid UTF-8 sequence at bytes[i], or 0 when the bytes there
// are malformed; `invalidLength` then receives the maximal subpart to replace.
size_t validSequenceLength(std::span<const uint8_t> bytes, size_t i, size_t& invalidLength) {
  const uint8_t lead = bytes[i];
  invalidLength = 1;
  size_t need;
  uint8_t lo = 0x80, hi = 0xBF;  // allowed range of the first continuation byte
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) {
    need = 1;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    need = 2;
    if (lead == 0xE0) lo = 0xA0;  // overlong
    if (lead == 0xED) hi = 0x9F;  // surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    need = 3;
    if (lead == 0xF0) lo = 0x90;  // overlong
    if (lead == 0xF4) hi = 0x8F;  // past U+10FFFF
  } else {
    return 0;
  }
  for (size_t k = 1; k <= need; ++k) {
    if (i + k >= bytes.size()) {
      invalidLength = k;
      return 0;
    }
    const uint8_t b = bytes[i + k];
    const bool ok = k == 1 ? (b >= lo && b <= hi) : (b >= 0x80 && b <= 0xBF);
    if (!ok) {
      invalidLength = k;
      return 0;
    }
  }
  return need + 1;
}

template <bool BigEndian>
std::string decodeUtf16(std::span<const uint8_t> bytes) {
  std::string out;
  out.reserve(bytes.size());
  size_t i = 0;
  while (i + 2 <= bytes.size()) {
    const uint32_t unit = readUnit(bytes, i, {2, BigEndian});
    i += 2;
    if (unit >= 0xD800 && unit <= 0xDBFF && i + 2 <= bytes.size()) {
      const uint32_t low = readUnit(bytes, i, {2, BigEndian});
      if (low >= 0xDC00 && low <= 0xDFFF) {
        appendUtf8(out, 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00));
        i += 2;
        continue;
      }
    }
    appendUtf8(out, unit >= 0xD800 && unit <= 0xDFFF ? kReplacement : unit);
  }
  if (i < bytes.size()) appendUtf8(out, kReplacement);  // a lone trailing byte
  return out;
}

template <bool BigEndian>
std::string decodeUtf32(std::span<const uint8_t> bytes) {
  std::string out;
  out.reserve(bytes.size());
  size_t i = 0;
  for (; i + 4 <= bytes.size(); i += 4) appendUtf8(out, readUnit(bytes, i, {4, BigEndian}));
  if (i < bytes.size()) appendUtf8(out, kReplacement);
  return out;
}

std::string decodeLatin1(std::span<const uint8_t> bytes) {
  std::string out;
  out.reserve(bytes.size());
  for (uint8_t b : bytes) appendUtf8(out, b);
  return out;
}

}  // namespace

void appendUtf8(std::string& out, char32_t cp) {
  if ((cp >= 0xD800 && cp <= 0xDFFF) || cp > 0x10FFFF) cp = kReplacement;
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

std::string decodeUtf8Lossy(std::span<const uint8_t> bytes) {
  std::string out;
  out.reserve(bytes.size());
  size_t i = 0;
  while (i < bytes.size()) {
    size_t invalidLength;
    const size_t n = validSequenceLength(bytes, i, invalidLength);
    if (n == 0) {
      appendUtf8(out, kReplacement);
      i += invalidLength;
    } else {
      out.append(reinterpret_cast<const char*>(bytes.data() + i), n);
      i += n;
    }
  }
  return out;
}

std::string decodeToUtf8(std::span<const uint8_t> bytes, DetectedEncoding encoding) {
  switch (encoding) {
    case DetectedEncoding::utf16LE: return decodeUtf16<false>(bytes);
    case DetectedEncoding::utf16BE: return decodeUtf16<true>(bytes);
    case DetectedEncoding::utf32LE: return decodeUtf32<false>(bytes);
    case DetectedEncoding::utf32BE: return decodeUtf32<true>(bytes);
    case DetectedEncoding::isoLatin1: return decodeLatin1(bytes);
    default: return decodeUtf8Lossy(bytes);
  }
}

}  // namespace quorin::text
