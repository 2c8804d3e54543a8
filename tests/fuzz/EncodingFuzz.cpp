// Encoding detection and transcoding over arbitrary bytes, in every
// encoding: decoding always gives valid UTF-8, the streamed working copy
// (read in blocks of any size) is the text decoding gives at once, and text
// that encodes back decodes to itself.
#include <sys/mman.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "FuzzSupport.h"
#include "support/TempDir.h"
#include "text/Decode.h"
#include "text/DetectedEncoding.h"
#include "text/Encoder.h"
#include "text/EncodingDetector.h"
#include "text/Transcoder.h"

using namespace quorin::text;

namespace {

bool isValidUtf8(const std::string& text) { return decodeUtf8Lossy(quorin::fuzz::bytesOf(text)) == text; }

using quorin::testing::readFile;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  quorin::fuzz::InputReader input(data, size);
  const auto chosen = static_cast<DetectedEncoding>(input.below(kDetectedEncodingCount));
  const size_t blockBytes = 1 + input.below(64);
  const bool wholeFile = input.flag();
  const std::string_view text = input.rest();
  const auto bytes = quorin::fuzz::bytesOf(text);

  const DetectedEncoding detected = detectEncoding(bytes, wholeFile);
  if (wholeFile && isValidUtf8(std::string(text)) && byteOrderMark(sniffByteOrderMark(bytes)).empty() &&
      text.find('\0') == std::string_view::npos)
    FUZZ_CHECK(detected == DetectedEncoding::utf8);

  for (const DetectedEncoding encoding : {detected, chosen}) {
    const std::string decoded = decodeToUtf8(bytes, encoding);
    FUZZ_CHECK(isValidUtf8(decoded));
    if (encoding == DetectedEncoding::utf8 && isValidUtf8(std::string(text))) FUZZ_CHECK(decoded == text);

    // The working copy, streamed in tiny blocks, is the whole decoding of the
    // bytes after the mark.
    static const quorin::testing::TempDir dir;
    const int fd = ::memfd_create("fuzz-source", 0);
    FUZZ_CHECK(fd >= 0);
    FUZZ_CHECK(::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
    const auto destination = dir.path() / "working-copy.txt";
    std::filesystem::remove(destination);
    TranscodeOptions options;
    options.blockBytes = blockBytes;
    const auto summary = transcodeToUtf8(fd, "fuzz-source", encoding, destination, options);
    ::close(fd);
    FUZZ_CHECK(summary.has_value());
    FUZZ_CHECK(summary->sourceBytes == static_cast<int64_t>(text.size()));
    const std::string copy = readFile(destination);
    FUZZ_CHECK(summary->utf8Bytes == static_cast<int64_t>(copy.size()));
    FUZZ_CHECK(copy == decodeToUtf8(bytes.subspan(static_cast<size_t>(summary->markBytes)), encoding));
    if (summary->substitutions == 0 && needsWorkingCopy(encoding)) {
      // A faithful copy saves back to the very bytes it came from.
      const auto encoded = encodeUtf8(copy, encoding, summary->markBytes > 0);
      FUZZ_CHECK(encoded.has_value());
      FUZZ_CHECK(*encoded == text);
    }
    std::filesystem::remove(destination);
  }

  // Any UTF-8 text either encodes (and reads back) or names the first
  // character the target lacks.
  const std::string utf8 = decodeUtf8Lossy(bytes);
  const auto encoded = encodeUtf8(utf8, chosen);
  if (encoded) {
    FUZZ_CHECK(decodeToUtf8(quorin::fuzz::bytesOf(*encoded), chosen) == utf8);
  } else {
    FUZZ_CHECK(encoded.error().utf8Offset >= 0 &&
               encoded.error().utf8Offset < static_cast<int64_t>(utf8.size()));
  }
  return 0;
}
