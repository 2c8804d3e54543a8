#include "text/EncodingDetector.h"

#include <unicode/ucsdet.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string_view>

#include "text/CodeUnits.h"
#include "text/Utf8.h"

namespace quorin::text {
namespace {

using enum DetectedEncoding;

// ICU's multi-byte recognisers report about 10 for text with no double-byte
// characters at all; real CJK text scores far higher (near 100 on a few KiB).
constexpr int32_t kMinCjkConfidence = 25;

std::optional<DetectedEncoding> unmarkedUtf32(std::span<const uint8_t> sample) {
  const size_t units = sample.size() / 4;
  if (units < 2) return std::nullopt;
  for (const UnitLayout layout : {UnitLayout{4, false}, UnitLayout{4, true}}) {
    size_t nulUnits = 0;
    bool valid = true;
    for (size_t u = 0; u < units && valid; ++u) {
      const uint32_t value = readUnit(sample, u * 4, layout);
      // Planes 3 to 13 hold next to no characters; ruling them out keeps
      // UTF-16 text such as "A\n" (41 00 0A 00) from passing for UTF-32.
      valid = (value < 0x40000 || (value >= 0xE0000 && value <= 0x10FFFF)) &&
              !(value >= 0xD800 && value <= 0xDFFF);
      nulUnits += value == 0;
    }
    if (valid && nulUnits * 8 <= units) return layout.bigEndian ? utf32BE : utf32LE;
  }
  return std::nullopt;
}

// No unpaired surrogate; a high surrogate ending the sample may be cut off.
bool validUtf16(std::span<const uint8_t> sample, UnitLayout layout) {
  const size_t units = sample.size() / 2;
  for (size_t u = 0; u < units; ++u) {
    const uint32_t unit = readUnit(sample, u * 2, layout);
    if (unit >= 0xDC00 && unit <= 0xDFFF) return false;
    if (unit >= 0xD800 && unit <= 0xDBFF) {
      if (u + 1 == units) return true;
      const uint32_t next = readUnit(sample, (u + 1) * 2, layout);
      if (next < 0xDC00 || next > 0xDFFF) return false;
      ++u;
    }
  }
  return true;
}

std::optional<DetectedEncoding> unmarkedUtf16(std::span<const uint8_t> sample) {
  const size_t units = sample.size() / 2;
  if (units < 2) return std::nullopt;
  size_t zeroEven = 0, zeroOdd = 0;
  for (size_t i = 0; i + 1 < sample.size(); i += 2) {
    zeroEven += sample[i] == 0;
    zeroOdd += sample[i + 1] == 0;
  }
  for (const bool bigEndian : {false, true}) {
    const size_t zeroHigh = bigEndian ? zeroEven : zeroOdd;
    const size_t zeroLow = bigEndian ? zeroOdd : zeroEven;
    if (zeroHigh * 5 >= units && zeroLow * 10 <= zeroHigh && validUtf16(sample, {2, bigEndian})) {
      return bigEndian ? utf16BE : utf16LE;
    }
  }
  return std::nullopt;
}

bool looksLikeUtf8(std::span<const uint8_t> sample, bool sampleIsWholeFile) {
  const size_t valid = validUtf8Prefix(sample);
  if (valid == sample.size()) return true;
  const Utf8Step step = readUtf8(sample, valid);
  if (step.kind != Utf8Step::Kind::truncated || valid + step.length != sample.size()) return false;
  if (!sampleIsWholeFile) return true;
  return std::any_of(sample.begin(), sample.begin() + static_cast<ptrdiff_t>(valid),
                     [](uint8_t b) { return b >= 0x80; });
}

std::optional<DetectedEncoding> fromIcuName(std::string_view icu, int32_t confidence) {
  struct Mapping {
    std::string_view icu;
    DetectedEncoding encoding;
    bool multiByte;
  };
  static constexpr Mapping kMappings[] = {
      {"Shift_JIS", shiftJIS, true},    {"EUC-JP", eucJP, true},
      {"GB18030", gb18030, true},       {"Big5", big5, true},
      {"EUC-KR", eucKR, true},          {"windows-1252", windows1252, false},
      {"ISO-8859-1", isoLatin1, false},
  };
  for (const Mapping& m : kMappings) {
    if (m.icu == icu && (!m.multiByte || confidence >= kMinCjkConfidence)) return m.encoding;
  }
  return std::nullopt;
}

std::optional<DetectedEncoding> detectWithIcu(std::span<const uint8_t> sample) {
  UErrorCode err = U_ZERO_ERROR;
  std::unique_ptr<UCharsetDetector, decltype(&ucsdet_close)> detector(ucsdet_open(&err), ucsdet_close);
  if (U_FAILURE(err)) return std::nullopt;
  const auto length = static_cast<int32_t>(std::min(sample.size(), kDetectionSampleBytes));
  ucsdet_setText(detector.get(), reinterpret_cast<const char*>(sample.data()), length, &err);
  int32_t count = 0;
  const UCharsetMatch** matches = ucsdet_detectAll(detector.get(), &count, &err);
  if (U_FAILURE(err)) return std::nullopt;
  for (int32_t i = 0; i < count; ++i) {  // best first
    const char* icuName = ucsdet_getName(matches[i], &err);
    const int32_t confidence = ucsdet_getConfidence(matches[i], &err);
    if (U_FAILURE(err)) return std::nullopt;
    if (auto encoding = fromIcuName(icuName, confidence)) return encoding;
  }
  return std::nullopt;
}

}  // namespace

DetectedEncoding detectEncoding(std::span<const uint8_t> sample, bool sampleIsWholeFile) {
  if (const DetectedEncoding marked = sniffByteOrderMark(sample); marked != utf8) return marked;
  if (sample.empty()) return utf8;
  if (auto encoding = unmarkedUtf32(sample)) return *encoding;
  if (auto encoding = unmarkedUtf16(sample)) return *encoding;
  if (looksLikeUtf8(sample, sampleIsWholeFile)) return utf8;
  return detectWithIcu(sample).value_or(windows1252);
}

}  // namespace quorin::text
