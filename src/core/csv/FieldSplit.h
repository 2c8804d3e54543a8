#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quorin::csv {

// One field of one record, as a span of the record's raw bytes.
struct CSVField {
  int64_t offset = 0;   // from the record's first byte
  int64_t length = 0;   // raw length, surrounding quotes included
  bool quoted = false;  // the field's first byte is a quote
  bool operator==(const CSVField&) const = default;
};

// The fields of one record (its line ending may be included: one trailing
// LF, then one trailing CR, is dropped). A record with n delimiters outside
// quotes gives n + 1 fields; an empty record gives one empty field. Never
// fails: malformed quoting is the record scanner's to report, and here a
// stray quote is simply data.
std::vector<CSVField> splitFields(std::span<const uint8_t> record, uint8_t delimiter);

// The value a cell shows for a field's raw bytes. A quoted field loses its
// surrounding quotes (each only if present) and has "" read as "; an
// unquoted field keeps its bytes, quotes included. Invalid UTF-8 becomes
// U+FFFD rather than failing.
std::string fieldValue(std::span<const uint8_t> raw, bool quoted);

// The text to write for a cell value: quoted (with inner quotes doubled)
// when forced or when it holds the delimiter, a quote, CR or LF; as it is otherwise.
std::string quoteValue(std::string_view value, uint8_t delimiter, bool forceQuotes);

}  // namespace quorin::csv
