// Sidecar files over any bytes: read or refused with a reason, and what was
// read writes back to the same sidecar.
#include <string_view>

#include "FuzzSupport.h"
#include "bookmarks/Sidecar.h"

using namespace quorin::bookmarks;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (auto sidecar = sidecarFromJson(text)) {
    const auto again = sidecarFromJson(sidecarToJson(*sidecar));
    FUZZ_CHECK(again.has_value() && *again == *sidecar);
  } else {
    FUZZ_CHECK(sidecar.error().describe().starts_with("Not a Quorin sidecar: "));
  }
  return 0;
}
