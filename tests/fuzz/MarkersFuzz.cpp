// Marker lists from the settings over any bytes: read or refused with a
// reason; what was read writes back the same and compiles, and its spans
// on the input itself are disjoint, ordered and inside the text.
#include <string_view>

#include "FuzzSupport.h"
#include "bookmarks/Markers.h"

using namespace quorin::bookmarks;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  auto rules = markerRulesFromJson(text);
  if (!rules) {
    FUZZ_CHECK(!rules.error().empty());
    return 0;
  }
  FUZZ_CHECK(markerRulesFromJson(markerRulesToJson(*rules)) == rules);
  if (rules->size() > 20) return 0;
  CompiledMarkers markers(*rules);
  int64_t previousEnd = 0;
  for (const MarkerSpan& span : markers.spans(text, 0)) {
    FUZZ_CHECK(span.begin >= previousEnd && span.end > span.begin && span.end <= static_cast<int64_t>(size));
    previousEnd = span.end;
  }
  return 0;
}
