#include "text/LineEnding.h"

#include "text/CodeUnits.h"

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

LineEnding detectLineEnding(std::span<const uint8_t> bytes, DetectedEncoding encoding) {
  const UnitLayout layout = unitLayout(encoding);
  bool previousWasCR = false;
  for (size_t i = 0; i + layout.width <= bytes.size(); i += layout.width) {
    const uint32_t unit = readUnit(bytes, i, layout);
    if (unit == '\n') return previousWasCR ? LineEnding::crlf : LineEnding::lf;
    if (previousWasCR) return LineEnding::cr;
    previousWasCR = unit == '\r';
  }
  return previousWasCR ? LineEnding::cr : LineEnding::lf;
}

}  // namespace quorin::text
