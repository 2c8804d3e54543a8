#include "text/DetectedEncoding.h"

#include <algorithm>
#include <array>

namespace quorin::text {
namespace {

constexpr std::array<std::string_view, kDetectedEncodingCount> kNames = {
    "utf8",  "utf8WithBOM", "utf16LE", "utf16BE", "utf32LE",     "utf32BE",   "shiftJIS",
    "eucJP", "gb18030",     "big5",    "eucKR",   "windows1252", "isoLatin1",
};

constexpr std::array<std::string_view, kDetectedEncodingCount> kDisplayNames = {
    "UTF-8",  "UTF-8 with BOM", "UTF-16 LE", "UTF-16 BE", "UTF-32 LE",    "UTF-32 BE",   "Shift JIS",
    "EUC-JP", "GB 18030",       "Big5",      "EUC-KR",    "Windows-1252", "ISO Latin-1",
};

constexpr uint8_t kUtf8Mark[] = {0xEF, 0xBB, 0xBF};
constexpr uint8_t kUtf16LEMark[] = {0xFF, 0xFE};
constexpr uint8_t kUtf16BEMark[] = {0xFE, 0xFF};
constexpr uint8_t kUtf32LEMark[] = {0xFF, 0xFE, 0x00, 0x00};
constexpr uint8_t kUtf32BEMark[] = {0x00, 0x00, 0xFE, 0xFF};

bool startsWith(std::span<const uint8_t> bytes, std::span<const uint8_t> mark) {
  return bytes.size() >= mark.size() && std::equal(mark.begin(), mark.end(), bytes.begin());
}

}  // namespace

std::string_view name(DetectedEncoding encoding) { return kNames[static_cast<size_t>(encoding)]; }

std::string_view displayName(DetectedEncoding encoding) {
  return kDisplayNames[static_cast<size_t>(encoding)];
}

std::optional<DetectedEncoding> encodingFromName(std::string_view name) {
  for (size_t i = 0; i < kNames.size(); ++i)
    if (kNames[i] == name) return static_cast<DetectedEncoding>(i);
  return std::nullopt;
}

std::span<const uint8_t> byteOrderMark(DetectedEncoding encoding) {
  switch (encoding) {
    case DetectedEncoding::utf8WithBOM: return kUtf8Mark;
    case DetectedEncoding::utf16LE: return kUtf16LEMark;
    case DetectedEncoding::utf16BE: return kUtf16BEMark;
    case DetectedEncoding::utf32LE: return kUtf32LEMark;
    case DetectedEncoding::utf32BE: return kUtf32BEMark;
    default: return {};
  }
}

DetectedEncoding sniffByteOrderMark(std::span<const uint8_t> firstBytes) {
  if (firstBytes.size() < 2) return DetectedEncoding::utf8;
  for (auto candidate : {DetectedEncoding::utf32LE, DetectedEncoding::utf32BE, DetectedEncoding::utf8WithBOM,
                         DetectedEncoding::utf16LE, DetectedEncoding::utf16BE}) {
    if (startsWith(firstBytes, byteOrderMark(candidate))) return candidate;
  }
  return DetectedEncoding::utf8;
}

}  // namespace quorin::text
