#pragma once

#include <array>
#include <cstdint>
#include <expected>
#include <string>
#include <string_view>

#include "text/LineEnding.h"

namespace quorin::csv {

inline constexpr uint8_t kQuote = '"';
inline constexpr uint8_t kLF = '\n';
inline constexpr uint8_t kCR = '\r';

// The byte that separates fields, with the name the interface shows.
// Equality compares the byte, then the name.
struct CSVDelimiter {
  uint8_t byte = ',';
  std::string name = "Comma";

  static CSVDelimiter comma() { return {',', "Comma"}; }
  static CSVDelimiter tab() { return {'\t', "Tab"}; }
  static CSVDelimiter pipe() { return {'|', "Pipe"}; }
  static CSVDelimiter semicolon() { return {';', "Semicolon"}; }
  // The candidates detection tries, in the order that breaks its ties.
  static std::array<CSVDelimiter, 4> builtIns() { return {comma(), tab(), pipe(), semicolon()}; }

  bool operator==(const CSVDelimiter&) const = default;
};

inline constexpr std::string_view kCustomDelimiterName = "Custom Delimiter";
inline constexpr std::string_view kCustomDelimiterRefusal =
    "Delimiter must be one ASCII character (not a quote or newline)";

// The user's own delimiter: exactly one ASCII byte that is neither the quote
// nor CR or LF. A character that is one of the built-ins comes back as that
// built-in, so the interface names it ("Tab", not "Custom Delimiter").
// The error is the refusal text to show.
std::expected<CSVDelimiter, std::string> customDelimiter(std::string_view typed);

// The byte that ends a record: CR in documents whose line ending is CR
// alone, LF otherwise (a CR before it belongs to the line ending).
uint8_t recordTerminator(text::LineEnding ending);

}  // namespace quorin::csv
