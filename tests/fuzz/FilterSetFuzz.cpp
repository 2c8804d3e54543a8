// Filter-set files over any bytes: read or refused with a reason, and what
// was read writes back to the same set.
#include <string_view>

#include "FuzzSupport.h"
#include "filter/FilterSetJson.h"

using namespace quorin::filter;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (auto set = importFilterSet(text)) {
    const auto again = importFilterSet(exportFilterSet(*set));
    FUZZ_CHECK(again.has_value() && *again == *set);
  } else {
    FUZZ_CHECK(set.error().describe().starts_with("Not a Quorin filter set: "));
  }
  if (auto list = namedFiltersFromJson(text)) {
    const auto again = namedFiltersFromJson(namedFiltersToJson(*list));
    FUZZ_CHECK(again.has_value() && *again == *list);
  }
  return 0;
}
