// Every timestamp parser over any line, and the per-document parser over a
// run of lines: no crash, a span inside the line, fields in range, and the
// per-document parser agreeing with a fresh parse of each line.
#include <vector>

#include "FuzzSupport.h"
#include "logs/Timestamp.h"
#include "logs/TimestampParser.h"

using namespace quorin::logs;

namespace {

constexpr int64_t kDayMicros = int64_t{86'400} * 1'000'000;
// 0001-01-01 and 10000-01-01, a day either side for the zone. Yearless
// times may pass the end: their year steps once per New Year seen.
constexpr int64_t kEarliest = -62'135'596'800 * int64_t{1'000'000} - kDayMicros;
constexpr int64_t kLatest = 253'402'300'800 * int64_t{1'000'000} + kDayMicros;

void check(const LineTime& t, std::string_view line) {
  FUZZ_CHECK(t.begin >= 0 && t.begin <= t.end && t.end <= static_cast<int32_t>(line.size()));
  FUZZ_CHECK(t.hasDate || !t.hasYear);
  // 23:59:60.999999 is the latest time of day.
  if (!t.hasDate) FUZZ_CHECK(t.micros >= 0 && t.micros < kDayMicros + 1'000'000);
  FUZZ_CHECK(t.micros >= kEarliest);
  if (t.hasYear) FUZZ_CHECK(t.micros <= kLatest);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  quorin::fuzz::InputReader input(data, size);
  const int32_t year = 1 + static_cast<int32_t>(input.below(9999));
  const std::string_view text = input.rest();

  std::vector<std::string_view> lines;
  for (size_t start = 0; start <= text.size();) {
    const size_t newline = std::min(text.find('\n', start), text.size());
    lines.push_back(text.substr(start, newline - start));
    start = newline + 1;
  }
  for (const TimestampFormat format : kTimestampFormats) {
    FUZZ_CHECK(!name(format).empty());
    TimestampParser parser(format, year);
    for (const std::string_view line : lines) {
      if (auto t = parseTimestamp(format, line, year)) check(*t, line);
      if (auto t = parser.parse(line)) {
        check(*t, line);
        // Reusing the previous line's minute gives what a fresh parse gives
        // (yearless times aside: their year may have stepped).
        if (t->hasYear || !t->hasDate) FUZZ_CHECK(parseTimestamp(parser.lastFormat(), line, year) == t);
      }
    }
  }
  if (auto format = detectTimestampFormat(lines)) FUZZ_CHECK(!name(*format).empty());
  return 0;
}
