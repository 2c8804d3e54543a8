// Delimiter detection and the user's own delimiter over arbitrary bytes:
// a detected delimiter is a built-in that explains the sample with a steady
// column count, never one found in binary data, and the document form agrees
// with the sample form.
#include <cmath>
#include <string>

#include "FuzzSupport.h"
#include "csv/CsvTestSupport.h"
#include "csv/DelimiterDetection.h"

using namespace quorin::csv;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  quorin::fuzz::InputReader input(data, size);
  const uint8_t terminator = input.flag() ? '\r' : '\n';
  const std::string_view typed = input.chunk(8);
  const std::string_view sample = input.rest();
  const auto bytes = quorin::fuzz::bytesOf(sample);

  for (const CSVDelimiter& candidate : CSVDelimiter::builtIns()) {
    const SampleScore score = scoreSample(bytes, candidate.byte, terminator);
    FUZZ_CHECK(score.records >= 0 && score.records <= kSampleRecords);
    FUZZ_CHECK(score.failed == (score.records < 2));
    FUZZ_CHECK(score.share >= 0 && score.share <= 1 && std::isfinite(score.share));
    if (!score.failed) FUZZ_CHECK(score.modalFieldCount >= 1);
  }

  const auto detected = detectDelimiter(bytes, terminator);
  if (detected) {
    bool builtIn = false;
    for (const CSVDelimiter& candidate : CSVDelimiter::builtIns()) builtIn |= candidate == *detected;
    FUZZ_CHECK(builtIn);
    FUZZ_CHECK(sample.substr(0, kNulScanBytes).find('\0') == std::string_view::npos);
    const SampleScore score = scoreSample(bytes, detected->byte, terminator);
    FUZZ_CHECK(score.records >= 10 && score.modalFieldCount >= 2);
  }
  FUZZ_CHECK(detectDelimiter(testing::snapshotOf(sample), terminator) ==
             detectDelimiter(bytes.first(std::min<size_t>(bytes.size(), kDetectionSampleBytes)), terminator));

  const auto custom = customDelimiter(typed);
  if (custom) {
    FUZZ_CHECK(typed.size() == 1);
    FUZZ_CHECK(custom->byte < 0x80 && custom->byte != '"' && custom->byte != '\r' && custom->byte != '\n');
    FUZZ_CHECK(custom->byte == static_cast<uint8_t>(typed[0]));
  } else {
    FUZZ_CHECK(custom.error() == kCustomDelimiterRefusal);
  }
  return 0;
}
