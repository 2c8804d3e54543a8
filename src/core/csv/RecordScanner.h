#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <vector>

#include "csv/CSVDelimiter.h"

namespace quorin::csv {

// One complete record found by the scanner.
struct ScannedRecord {
  int64_t start = 0;       // absolute byte offset of its first byte
  int64_t fieldCount = 1;  // delimiters outside quotes, plus one
  bool malformed = false;  // data after a closing quote, or (trailing record) an unterminated quote
  bool operator==(const ScannedRecord&) const = default;
};

// The record state machine: splits a byte stream into records (a quoted
// field may hold delimiters and line breaks) and counts their fields. Bytes
// are fed in pieces of any size at increasing offsets from 0; the state is
// carried between pieces, so a quoted field or a CR LF pair may straddle two.
//
// scan() and scanBytewise() give the same records for the same bytes and may
// be mixed. scanBytewise() walks every byte through the transitions and is
// the reference; scan() classifies 64 bytes at a time and steps only through
// quotes, terminators and the byte after a closing quote, counting the
// delimiters between them in bulk, which is what makes indexing a gigabyte
// take well under a second.
// Not thread-safe; one scanner per scan.
class RecordScanner {
 public:
  enum class Quote : uint8_t { outside, inside, quoteSeen, crAfterQuote };

  RecordScanner(uint8_t delimiter, uint8_t terminator) : delimiter_(delimiter), terminator_(terminator) {}

  // Feeds `bytes` (the next piece of the stream) and appends every record it completes.
  void scan(std::span<const uint8_t> bytes, std::vector<ScannedRecord>& out);
  // The same one byte at a time; stops once `out` holds maxRecords records
  // (consumed() then tells how far it got).
  void scanBytewise(std::span<const uint8_t> bytes, std::vector<ScannedRecord>& out,
                    size_t maxRecords = std::numeric_limits<size_t>::max());

  // At the end of the stream: the record after the last terminator, if any
  // bytes follow it. It is malformed if the stream ends inside quotes.
  std::optional<ScannedRecord> trailingRecord() const;
  // Whether the stream so far ends inside a quoted field (a closing quote not yet seen).
  bool insideQuotes() const { return state_.quote == Quote::inside; }
  // The offset of the next byte to feed: the total fed so far.
  int64_t consumed() const { return state_.next; }

 private:
  struct State {
    Quote quote = Quote::outside;
    bool atFieldStart = true;
    bool malformed = false;
    int64_t fieldCount = 1;
    int64_t recordStart = 0;
    int64_t next = 0;
  };

  const uint8_t delimiter_;
  const uint8_t terminator_;
  State state_;
};

}  // namespace quorin::csv
