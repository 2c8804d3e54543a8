#include "text/LineEnding.h"

namespace quorin::text {

std::string_view name(LineEnding ending) {
  switch (ending) {
    case LineEnding::lf: return "lf";
    case LineEnding::crlf: return "crlf";
    case LineEnding::cr: return "cr";
  }
  return "lf";
}

std::optional<LineEnding> lineEndingFromName(std::string_view name) {
  for (auto ending : {LineEnding::lf, LineEnding::crlf, LineEnding::cr})
    if (text::name(ending) == name) return ending;
  return std::nullopt;
}

namespace {

struct UnitLayout {
  size_t width;
  bool bigEndian;
};

UnitLayout unitLayout(DetectedEncoding encoding) {
  switch (encoding) {
    case DetectedEncoding::utf16LE: return {2, false};
    case DetectedEncoding::utf16BE: return {2, true};
    case DetectedEncoding::utf32LE: return {4, false};
    case DetectedEncoding::utf32BE: return {4, true};
    default: return {1, false};
  }
}

uint32_t unitAt(std::span<const uint8_t> bytes, size_t i, UnitLayout layout) {
  uint32_t value = 0;
  for (size_t k = 0; k < layout.width; ++k) {
    const uint32_t b = bytes[i + k];
    value |= layout.bigEndian ? b << (8 * (layout.width - 1 - k)) : b << (8 * k);
  }
  return value;
}

}  // namespace

LineEnding detectLineEnding(std::span<const uint8_t> bytes, DetectedEncoding encoding) {
  const UnitLayout layout = unitLayout(encoding);
  bool previousWasCR = false;
  for (size_t i = 0; i + layout.width <= bytes.size(); i += layout.width) {
    const uint32_t unit = unitAt(bytes, i, layout);
    if (unit == '\n') return previousWasCR ? LineEnding::crlf : LineEnding::lf;
    if (previousWasCR) return LineEnding::cr;
    previousWasCR = unit == '\r';
  }
  return previousWasCR ? LineEnding::cr : LineEnding::lf;
}

}  // namespace quorin::text
