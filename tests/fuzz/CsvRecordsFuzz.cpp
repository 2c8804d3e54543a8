// The CSV record state machine over arbitrary bytes: the vectorised scan,
// fed in pieces of any size, must find the same records as the bytewise
// reference walk; the record index, built in chunks of any size, must hold
// exactly those records; and where the plain field-by-field reader of the
// tests applies, it must agree with both.
#include <algorithm>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "csv/CsvTestSupport.h"
#include "csv/RecordScanner.h"

using namespace quorin::csv;

namespace {

struct Scan {
  std::vector<ScannedRecord> records;
  bool insideQuotes = false;
};

Scan scanInPieces(std::string_view text, uint8_t delimiter, uint8_t terminator, size_t piece, bool bytewise) {
  RecordScanner scanner(delimiter, terminator);
  Scan out;
  for (size_t at = 0; at < text.size(); at += piece) {
    const auto bytes = quorin::fuzz::bytesOf(text.substr(at, piece));
    if (bytewise) {
      scanner.scanBytewise(bytes, out.records);
    } else {
      scanner.scan(bytes, out.records);
    }
  }
  FUZZ_CHECK(scanner.consumed() == static_cast<int64_t>(text.size()));
  if (auto trailing = scanner.trailingRecord()) out.records.push_back(*trailing);
  out.insideQuotes = scanner.insideQuotes();
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  quorin::fuzz::InputReader input(data, size);
  static constexpr uint8_t kDelimiters[] = {',', '\t', '|', ';', ' ', 'a'};
  const uint8_t delimiter = kDelimiters[input.below(sizeof kDelimiters)];
  const uint8_t terminator = input.flag() ? '\r' : '\n';
  const size_t piece = 1 + input.below(200);
  const int64_t chunk = 1 + static_cast<int64_t>(input.below(300));
  const std::string_view text = input.rest();

  const Scan reference = scanInPieces(text, delimiter, terminator, text.size() + 1, true);
  const Scan fast = scanInPieces(text, delimiter, terminator, piece, false);
  FUZZ_CHECK(fast.records == reference.records);
  FUZZ_CHECK(fast.insideQuotes == reference.insideQuotes);
  const Scan stepped = scanInPieces(text, delimiter, terminator, piece, true);
  FUZZ_CHECK(stepped.records == reference.records);

  // Records tile the text in order.
  for (size_t i = 0; i < reference.records.size(); ++i) {
    FUZZ_CHECK(reference.records[i].start < static_cast<int64_t>(text.size()));
    if (i > 0) FUZZ_CHECK(reference.records[i].start > reference.records[i - 1].start);
  }
  if (!reference.records.empty()) FUZZ_CHECK(reference.records.front().start == 0);

  // The index, in tiny chunks and in one, holds the same rows.
  const auto small =
      testing::buildIndex(text, static_cast<char>(delimiter), static_cast<char>(terminator), chunk);
  const auto whole = testing::buildIndex(text, static_cast<char>(delimiter), static_cast<char>(terminator));
  const auto image = testing::imageOf(*small);
  FUZZ_CHECK(image == testing::imageOf(*whole));
  FUZZ_CHECK(small->isComplete());
  FUZZ_CHECK(small->bytesScanned() == static_cast<int64_t>(text.size()));
  FUZZ_CHECK(image.table.starts.size() == reference.records.size());
  for (size_t i = 0; i < reference.records.size(); ++i) {
    FUZZ_CHECK(image.table.starts[i] == reference.records[i].start);
    FUZZ_CHECK(image.table.fieldCounts[i] ==
               std::min<int64_t>(reference.records[i].fieldCount, kMaxFieldCount));
    if (reference.records[i].malformed) FUZZ_CHECK(image.table.anomalies[i]);
    const auto row = static_cast<int64_t>(i);
    FUZZ_CHECK(small->rowAtOffset(reference.records[i].start) == row);
  }
  FUZZ_CHECK(image.table.unterminatedQuote == reference.insideQuotes);
  FUZZ_CHECK(small->parseState() != CSVParseState::failed);

  // The plain reader models neither a CR before a quote at a field start
  // (which still opens the quote) nor the byte after a closing quote and a
  // CR, which the state machine takes as malformed data even when it is a
  // delimiter.
  bool byteAfterQuoteAndCR = false;
  for (size_t at = text.find("\"\r"); at != std::string_view::npos; at = text.find("\"\r", at + 1))
    byteAfterQuoteAndCR |= terminator == '\n' && at + 2 < text.size() && text[at + 2] != '\n';
  if (text.find("\r\"") == std::string_view::npos && !byteAfterQuoteAndCR) {
    const auto table =
        testing::readRfc4180(text, static_cast<char>(delimiter), static_cast<char>(terminator));
    FUZZ_CHECK(table.starts.size() == reference.records.size());
    for (size_t i = 0; i < reference.records.size(); ++i) {
      FUZZ_CHECK(table.starts[i] == reference.records[i].start);
      FUZZ_CHECK(table.fieldCounts[i] == reference.records[i].fieldCount);
      FUZZ_CHECK(table.anomalies[i] == reference.records[i].malformed);
    }
    FUZZ_CHECK(table.unterminatedQuote == reference.insideQuotes);
  }
  return 0;
}
