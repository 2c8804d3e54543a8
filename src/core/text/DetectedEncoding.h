#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace quorin::text {

// The encoding a document was found in. Declaration order matters: tables are
// indexed by it, and the names are persisted (sessions, settings), so neither
// may change.
enum class DetectedEncoding : uint8_t {
  utf8,
  utf8WithBOM,
  utf16LE,
  utf16BE,
  utf32LE,
  utf32BE,
  shiftJIS,
  eucJP,
  gb18030,
  big5,
  eucKR,
  windows1252,
  isoLatin1,
};

inline constexpr int kDetectedEncodingCount = 13;

// The persisted name, e.g. "utf16LE".
std::string_view name(DetectedEncoding encoding);
std::optional<DetectedEncoding> encodingFromName(std::string_view name);

// The name shown to the user, e.g. "UTF-16 LE", "Shift JIS", "Windows-1252".
std::string_view displayName(DetectedEncoding encoding);

// The byte-order mark of the five encodings that carry one; empty for the others.
std::span<const uint8_t> byteOrderMark(DetectedEncoding encoding);

// Picks the encoding from the first bytes of a file by its byte-order mark
// alone; `utf8` when there is none (or fewer than 2 bytes). UTF-32LE's mark
// begins with UTF-16LE's, so it is tested first.
DetectedEncoding sniffByteOrderMark(std::span<const uint8_t> firstBytes);

}  // namespace quorin::text
