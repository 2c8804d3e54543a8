// Pair files over any bytes: read or refused naming a line, and what was read
// writes back to pairs that find and insert the same bytes.
#include <string_view>

#include "FuzzSupport.h"
#include "replace/PairsTsv.h"
#include "search/QueryText.h"

using namespace quorin::replace;

namespace {

BatchPair effective(BatchPair pair) {
  if (pair.escapes && !pair.regex) {
    pair.find = quorin::search::expandEscapes(pair.find);
    pair.replace = quorin::search::expandEscapes(pair.replace);
  }
  pair.escapes = pair.escapes && pair.regex;
  return pair;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto pairs = readPairsTsv(text);
  if (!pairs) {
    FUZZ_CHECK(pairs.error().line >= 1);
    FUZZ_CHECK(pairs.error().describe().starts_with("Line "));
    return 0;
  }
  const auto again = readPairsTsv(writePairsTsv(*pairs));
  FUZZ_CHECK(again.has_value() && again->size() == pairs->size());
  for (size_t i = 0; i < pairs->size(); ++i) FUZZ_CHECK(effective((*again)[i]) == effective((*pairs)[i]));
  return 0;
}
