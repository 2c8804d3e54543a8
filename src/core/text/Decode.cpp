#include "text/Decode.h"

#include "text/IcuConverter.h"
#include "text/Utf8.h"

namespace quorin::text {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool isUtf8(DetectedEncoding encoding) {
  return encoding == DetectedEncoding::utf8 || encoding == DetectedEncoding::utf8WithBOM;
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
    const size_t valid = validUtf8Prefix(bytes.subspan(i));
    out.append(reinterpret_cast<const char*>(bytes.data() + i), valid);
    i += valid;
    if (i == bytes.size()) break;
    appendUtf8(out, kReplacement);
    i += readUtf8(bytes, i).length;
  }
  return out;
}

std::string decodeToUtf8(std::span<const uint8_t> bytes, DetectedEncoding encoding) {
  if (isUtf8(encoding) && validUtf8Prefix(bytes) == bytes.size()) {
    return std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  }
  std::string out;
  Utf8DecodeStream stream(encoding);
  stream.convert(bytes, true, out);
  return out;
}

}  // namespace quorin::text
