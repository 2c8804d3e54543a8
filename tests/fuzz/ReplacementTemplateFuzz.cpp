// Replacement templates over any bytes: parsed or refused with a message
// (a malformed one says where), and a parsed one expands any groups,
// including bytes that are not UTF-8, under any case change.
#include <string>
#include <string_view>
#include <vector>

#include "FuzzSupport.h"
#include "replace/ReplacementTemplate.h"

using namespace quorin::replace;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  PatternGroups groups;
  groups.count = data[0] % 16;
  if (groups.count >= 1) groups.names.emplace_back("name", 1);
  if (groups.count >= 3) groups.names.emplace_back("n_2", 3);
  const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
  const auto parsed = ReplacementTemplate::parse(text, groups);
  if (!parsed) {
    const TemplateError& error = parsed.error();
    FUZZ_CHECK(!error.describe().empty());
    if (error.kind == TemplateError::Kind::malformed) FUZZ_CHECK(error.column >= 1);
    if (error.kind == TemplateError::Kind::missingGroup) FUZZ_CHECK(error.group > groups.count);
    return 0;
  }
  FUZZ_CHECK(parsed->highestGroup() <= groups.count);
  // Group n is n copies of a mixed text: ASCII, Greek, a final-sigma context and a stray byte.
  std::vector<std::string> values;
  for (int g = 0; g <= groups.count; ++g) {
    std::string value;
    for (int k = 0; k < g % 3 + 1; ++k)
      value +=
          "aΣß\xFF"
          "İ";
    values.push_back(value);
  }
  const std::vector<std::string_view> views(values.begin(), values.end());
  std::string out;
  parsed->expand(views, out);
  if (parsed->isConstant()) FUZZ_CHECK(out == parsed->constantText());
  // Fewer groups than the pattern has count as empty.
  std::string shorter;
  parsed->expand(std::span<const std::string_view>(views).first(1), shorter);
  return 0;
}
