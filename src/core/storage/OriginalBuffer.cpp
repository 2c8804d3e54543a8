#include "storage/OriginalBuffer.h"

#include <algorithm>
#include <array>
#include <vector>

#include "text/EncodingDetector.h"

namespace quorin::storage {

text::DetectedEncoding detectFileEncoding(const MMapWrapper& file) {
  const int64_t length = file.length();
  std::vector<uint8_t> sample(static_cast<size_t>(std::min<int64_t>(length, text::kDetectionSampleBytes)));
  sample.resize(static_cast<size_t>(file.copy(0, static_cast<int64_t>(sample.size()), sample.data())));
  return text::detectEncoding(sample, length <= static_cast<int64_t>(text::kDetectionSampleBytes));
}
namespace {

// Only the first line break decides the line ending; looking further would
// cost a page fault per file on open for nothing.
constexpr int64_t kLineEndingProbeBytes = 8192;

std::vector<uint8_t> readFileBytes(const MMapWrapper& mmap, int64_t start, int64_t end) {
  std::vector<uint8_t> bytes(static_cast<size_t>(std::max<int64_t>(end - start, 0)));
  bytes.resize(static_cast<size_t>(mmap.copy(start, end, bytes.data())));
  return bytes;
}

int64_t contentStartFor(const MMapWrapper& mmap, text::DetectedEncoding encoding) {
  const auto mark = text::byteOrderMark(encoding);
  if (mark.empty() || mmap.length() < static_cast<int64_t>(mark.size())) return 0;
  const auto head = readFileBytes(mmap, 0, static_cast<int64_t>(mark.size()));
  return std::equal(mark.begin(), mark.end(), head.begin(), head.end()) ? static_cast<int64_t>(mark.size())
                                                                        : 0;
}

}  // namespace

OriginalBuffer::OriginalBuffer(std::shared_ptr<MMapWrapper> mmap, text::DetectedEncoding encoding,
                               text::LineEnding lineEnding, int64_t contentStart)
    : mmap_(std::move(mmap)), encoding_(encoding), lineEnding_(lineEnding), contentStart_(contentStart) {}

std::shared_ptr<const OriginalBuffer> OriginalBuffer::make(std::shared_ptr<MMapWrapper> mmap,
                                                           std::optional<text::DetectedEncoding> encoding,
                                                           std::optional<text::LineEnding> knownLineEnding) {
  text::DetectedEncoding chosen = text::DetectedEncoding::utf8;
  if (encoding) {
    chosen = *encoding;
  } else if (mmap->length() >= 2) {
    chosen = text::sniffByteOrderMark(readFileBytes(*mmap, 0, std::min<int64_t>(4, mmap->length())));
  }
  const int64_t contentStart = contentStartFor(*mmap, chosen);
  const int64_t probeEnd = std::min(contentStart + kLineEndingProbeBytes, mmap->length());
  const auto lineEnding =
      knownLineEnding.value_or(text::detectLineEnding(readFileBytes(*mmap, contentStart, probeEnd), chosen));
  return std::shared_ptr<const OriginalBuffer>(
      new OriginalBuffer(std::move(mmap), chosen, lineEnding, contentStart));
}

std::shared_ptr<const OriginalBuffer> OriginalBuffer::untitled() {
  return make(MMapWrapper::anonymousEmpty());
}

}  // namespace quorin::storage
