// Field splitting and cell values over arbitrary record bytes: the fields
// tile the record with one delimiter between neighbours, a value is always
// valid UTF-8, and any value written with quoteValue reads back unchanged.
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "csv/FieldSplit.h"
#include "text/Decode.h"

using namespace quorin::csv;

namespace {

bool isValidUtf8(const std::string& text) {
  return quorin::text::decodeUtf8Lossy(quorin::fuzz::bytesOf(text)) == text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  quorin::fuzz::InputReader input(data, size);
  static constexpr uint8_t kDelimiters[] = {',', '\t', '|', ';', ' ', 'x', 0xC3};
  const uint8_t delimiter = kDelimiters[input.below(sizeof kDelimiters)];
  const bool forceQuotes = input.flag();
  const std::string_view record = input.chunk(4096);
  const auto bytes = quorin::fuzz::bytesOf(record);

  const auto fields = splitFields(bytes, delimiter);
  FUZZ_CHECK(!fields.empty());
  // One trailing LF, then one trailing CR, is the record's line ending.
  size_t body = record.size();
  if (body > 0 && record[body - 1] == '\n') --body;
  if (body > 0 && record[body - 1] == '\r') --body;
  int64_t expectedStart = 0;
  for (size_t i = 0; i < fields.size(); ++i) {
    const CSVField& field = fields[i];
    FUZZ_CHECK(field.offset == expectedStart);
    FUZZ_CHECK(field.length >= 0 && field.offset + field.length <= static_cast<int64_t>(body));
    const size_t end = static_cast<size_t>(field.offset + field.length);
    if (i + 1 < fields.size()) {
      FUZZ_CHECK(end < body && static_cast<uint8_t>(record[end]) == delimiter);
    } else {
      FUZZ_CHECK(end == body);
    }
    FUZZ_CHECK(field.quoted == (field.length > 0 && record[static_cast<size_t>(field.offset)] == '"'));
    const std::string value = fieldValue(
        bytes.subspan(static_cast<size_t>(field.offset), static_cast<size_t>(field.length)), field.quoted);
    FUZZ_CHECK(isValidUtf8(value));
    if (!field.quoted) {
      const std::string raw(
          record.substr(static_cast<size_t>(field.offset), static_cast<size_t>(field.length)));
      if (isValidUtf8(raw)) FUZZ_CHECK(value == raw);
    }
    expectedStart = field.offset + field.length + 1;
  }

  // Whatever a cell holds, writing it and reading it back gives it again.
  const std::string value = quorin::text::decodeUtf8Lossy(quorin::fuzz::bytesOf(input.rest()));
  const std::string written = quoteValue(value, delimiter, forceQuotes);
  const auto back = splitFields(quorin::fuzz::bytesOf(written), delimiter);
  FUZZ_CHECK(back.size() == 1);
  FUZZ_CHECK(back[0].length == static_cast<int64_t>(written.size()));
  FUZZ_CHECK(fieldValue(quorin::fuzz::bytesOf(written), back[0].quoted) == value);
  return 0;
}
