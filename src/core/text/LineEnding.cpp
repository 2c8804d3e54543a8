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

LineEnding detectLineEnding(std::span<const uint8_t> bytes) {
  bool previousWasCR = false;
  for (uint8_t byte : bytes) {
    if (byte == '\n') return previousWasCR ? LineEnding::crlf : LineEnding::lf;
    if (previousWasCR) return LineEnding::cr;
    previousWasCR = byte == '\r';
  }
  return previousWasCR ? LineEnding::cr : LineEnding::lf;
}

}  // namespace quorin::text
