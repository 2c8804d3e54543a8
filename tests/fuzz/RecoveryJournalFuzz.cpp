// Recovery journals over any bytes: read up to the first bad record or
// refused with a reason; what was read encodes back to bytes that read the same.
#include <string_view>

#include "FuzzSupport.h"
#include "recovery/JournalFormat.h"

using namespace quorin::recovery;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  auto parsed = parseJournal(bytes);
  if (!parsed) {
    FUZZ_CHECK(parsed.error().describe().starts_with("Not a Quorin recovery journal: "));
    return 0;
  }
  std::string again = encodeJournalHeader(parsed->header);
  for (const JournalRecord& record : parsed->records) {
    std::vector<SiteView> views;
    for (const JournalSite& site : record) views.push_back({site.offset, site.removed, site.inserted});
    again += encodeRecord(views);
  }
  const auto reread = parseJournal(again);
  FUZZ_CHECK(reread && reread->header == parsed->header && reread->records == parsed->records &&
             !reread->torn);
  return 0;
}
