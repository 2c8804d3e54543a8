#include "csv/FieldSplit.h"

#include "csv/CSVDelimiter.h"
#include "text/Decode.h"

namespace quorin::csv {

std::vector<CSVField> splitFields(std::span<const uint8_t> record, uint8_t delimiter) {
  if (!record.empty() && record.back() == kLF) record = record.first(record.size() - 1);
  if (!record.empty() && record.back() == kCR) record = record.first(record.size() - 1);
  std::vector<CSVField> fields;
  if (record.empty()) {
    fields.push_back({});
    return fields;
  }

  enum class Quote : uint8_t { outside, inside, quoteSeen };
  Quote quote = Quote::outside;
  bool atFieldStart = true;
  CSVField current;
  const auto size = static_cast<int64_t>(record.size());
  for (int64_t i = 0; i < size; ++i) {
    const uint8_t c = record[static_cast<size_t>(i)];
    if (quote == Quote::inside) {
      if (c == kQuote) quote = Quote::quoteSeen;
      continue;
    }
    if (quote == Quote::quoteSeen) {
      if (c == kQuote) {
        quote = Quote::inside;
        continue;
      }
      quote = Quote::outside;
    }
    if (c == kQuote && atFieldStart) {
      current.quoted = true;
      quote = Quote::inside;
      atFieldStart = false;
    } else if (c == delimiter) {
      current.length = i - current.offset;
      fields.push_back(current);
      current = CSVField{i + 1, 0, false};
      atFieldStart = true;
    } else {
      atFieldStart = false;
    }
  }
  current.length = size - current.offset;
  fields.push_back(current);
  return fields;
}

std::string fieldValue(std::span<const uint8_t> raw, bool quoted) {
  if (!quoted) return text::decodeUtf8Lossy(raw);
  if (!raw.empty() && raw.front() == kQuote) raw = raw.subspan(1);
  if (!raw.empty() && raw.back() == kQuote) raw = raw.first(raw.size() - 1);
  std::string value = text::decodeUtf8Lossy(raw);
  // "" → " in place; the replacement characters above are never quotes.
  size_t write = 0;
  for (size_t read = 0; read < value.size(); ++read) {
    value[write++] = value[read];
    if (value[read] == '"' && read + 1 < value.size() && value[read + 1] == '"') ++read;
  }
  value.resize(write);
  return value;
}

std::string quoteValue(std::string_view value, uint8_t delimiter, bool forceQuotes) {
  const bool needsQuotes = forceQuotes ||
                           value.find_first_of(std::string_view("\"\r\n")) != std::string_view::npos ||
                           value.find(static_cast<char>(delimiter)) != std::string_view::npos;
  if (!needsQuotes) return std::string(value);
  std::string out;
  out.reserve(value.size() + 2);
  out.push_back('"');
  for (const char c : value) {
    if (c == '"') out.push_back('"');
    out.push_back(c);
  }
  out.push_back('"');
  return out;
}

}  // namespace quorin::csv
