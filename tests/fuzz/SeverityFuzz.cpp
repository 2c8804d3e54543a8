// Severity detection over any bytes: a valid level, decided by the window
// alone, and user rules that compile or are refused with their message.
#include <string>

#include "FuzzSupport.h"
#include "logs/Severity.h"
#include "logs/SeverityRules.h"

using namespace quorin::logs;

namespace {

bool valid(Level level) { return level <= Level::fatal; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  quorin::fuzz::InputReader input(data, size);
  const size_t timestampEnd = input.byte();
  const bool regex = input.flag();
  const auto level = static_cast<Level>(input.below(9));
  const std::string pattern(input.chunk(32));
  const std::string_view line = input.rest();

  const Level text = detectLevel(line);
  FUZZ_CHECK(valid(text));
  // Nothing past the window's next byte (which only ends a word) counts.
  FUZZ_CHECK(detectLevel(line.substr(0, kLevelWindowBytes + 1)) == text);
  const Level whole = detectLineLevel(line, timestampEnd);
  FUZZ_CHECK(valid(whole));

  SeverityRules rules;
  const uint64_t before = rules.generation();
  if (auto set = rules.setUserRules({{pattern, regex, level}})) {
    FUZZ_CHECK(rules.generation() == before + 1);
    FUZZ_CHECK(valid(rules.detect(line, timestampEnd)));
  } else {
    FUZZ_CHECK(regex && set.error().describe().starts_with("Invalid regex: "));
    FUZZ_CHECK(rules.generation() == before);
  }
  return 0;
}
