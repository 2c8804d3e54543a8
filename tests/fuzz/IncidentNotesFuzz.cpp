// Incident notes as typed: the links found name real lines only, and the
// HTML report never carries a tag the notes wrote.
#include <string>
#include <string_view>

#include "FuzzSupport.h"
#include "bookmarks/IncidentReport.h"

using namespace quorin::bookmarks;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string notes(reinterpret_cast<const char*>(data), size);
  for (const int64_t line : linkedLinesOf(notes)) FUZZ_CHECK(line >= 0);
  IncidentReport report{.fileName = "f", .notes = notes};
  const std::string html = reportHtml(report);
  const std::string_view body = std::string_view(html).substr(html.find("<body>"));
  FUZZ_CHECK(body.find("<script") == std::string_view::npos && body.find("<img") == std::string_view::npos);
  FUZZ_CHECK(body.find("href=\"javascript") == std::string_view::npos);
  return 0;
}
