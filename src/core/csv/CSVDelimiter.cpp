#include "csv/CSVDelimiter.h"

namespace quorin::csv {

std::expected<CSVDelimiter, std::string> customDelimiter(std::string_view typed) {
  if (typed.size() != 1) return std::unexpected(std::string(kCustomDelimiterRefusal));
  const auto byte = static_cast<uint8_t>(typed.front());
  if (byte >= 0x80 || byte == kQuote || byte == kLF || byte == kCR)
    return std::unexpected(std::string(kCustomDelimiterRefusal));
  for (CSVDelimiter& builtIn : CSVDelimiter::builtIns())
    if (builtIn.byte == byte) return std::move(builtIn);
  return CSVDelimiter{byte, std::string(kCustomDelimiterName)};
}

uint8_t recordTerminator(text::LineEnding ending) { return ending == text::LineEnding::cr ? kCR : kLF; }

}  // namespace quorin::csv
