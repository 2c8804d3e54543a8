// Line-ending and byte-order-mark sniffing over arbitrary bytes: the mark
// found is the longest one the bytes begin with, and the line ending read
// from the raw code units is the one the decoded text shows.
#include <string>

#include "FuzzSupport.h"
#include "text/Decode.h"
#include "text/DetectedEncoding.h"
#include "text/EncodingDetector.h"
#include "text/LineEnding.h"

using namespace quorin::text;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  quorin::fuzz::InputReader input(data, size);
  const auto encoding = static_cast<DetectedEncoding>(input.below(kDetectedEncodingCount));
  const std::string_view text = input.rest();
  const auto bytes = quorin::fuzz::bytesOf(text);

  const DetectedEncoding sniffed = sniffByteOrderMark(bytes);
  size_t longest = 0;
  for (int i = 0; i < kDetectedEncodingCount; ++i) {
    const auto mark = byteOrderMark(static_cast<DetectedEncoding>(i));
    if (!mark.empty() && mark.size() <= bytes.size() && std::equal(mark.begin(), mark.end(), bytes.begin()))
      longest = std::max(longest, mark.size());
  }
  FUZZ_CHECK(byteOrderMark(sniffed).size() == longest);
  if (longest > 0) FUZZ_CHECK(detectEncoding(bytes, true) == sniffed);

  // The decoded text keeps every CR and LF of the source, so its own first
  // break (read as UTF-8) is the one found in the code units.
  const LineEnding ending = detectLineEnding(bytes, encoding);
  const std::string decoded = decodeToUtf8(bytes, encoding);
  FUZZ_CHECK(detectLineEnding(quorin::fuzz::bytesOf(decoded)) == ending);
  return 0;
}
