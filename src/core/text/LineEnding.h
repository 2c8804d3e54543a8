#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

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
// else, or ending the bytes, is `cr`; no break at all is `lf`.
LineEnding detectLineEnding(std::span<const uint8_t> bytes);

}  // namespace quorin::text
