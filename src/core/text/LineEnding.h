#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "text/DetectedEncoding.h"

namespace quorin::text {

// The line ending a document was found with; raw values in this order.
enum class LineEnding : uint8_t { lf, crlf, cr };

std::string_view name(LineEnding ending);  // "lf", "crlf", "cr"
std::optional<LineEnding> lineEndingFromName(std::string_view name);

// The byte that ends a line: CR for `cr` documents, LF otherwise (a CRLF pair
// counts once, at its LF).
constexpr uint8_t lineTerminator(LineEnding ending) { return ending == LineEnding::cr ? 13 : 10; }

// Classifies text by its first line break only (a mixed file goes by its
// first break): CR LF is `crlf`, a lone LF is `lf`, a CR followed by anything
// else, or ending the text, is `cr`; no break at all is `lf`.
//
// The walk is over code units: bytes for UTF-8 and the legacy encodings,
// 16- or 32-bit units for UTF-16 and UTF-32, so that "a CR LF" in UTF-16
// (0D 00 0A 00) is `crlf` and not a CR followed by a zero byte.
LineEnding detectLineEnding(std::span<const uint8_t> bytes,
                            DetectedEncoding encoding = DetectedEncoding::utf8);

}  // namespace quorin::text
