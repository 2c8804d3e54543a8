#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "storage/MMapWrapper.h"
#include "text/DetectedEncoding.h"
#include "text/LineEnding.h"

namespace quorin::storage {

// A mapped file together with what its first bytes tell: the byte-order mark
// (so where the text proper begins), the encoding and the line ending.
// Immutable after construction and shared freely between threads.
//
// The document's byte 0 is file byte contentStart(): the mark is never part
// of the document.
// The encoding of a mapped file, from a sample of its first bytes as every
// open does: the byte-order mark, else UTF-8 validity, else ICU's detector.
text::DetectedEncoding detectFileEncoding(const MMapWrapper& file);

class OriginalBuffer {
 public:
  // With an encoding: contentStart is that encoding's mark length when the
  // file begins with the mark, else 0 (a file declared UTF-16 without a mark
  // keeps all its bytes). Without one: the mark alone decides (utf8 when
  // there is none). The line ending is then detected over at most 8 KiB
  // from contentStart. Touches only those first bytes of the file.
  // A known `lineEnding` (a file we just wrote) is taken as it is: whichever
  // break happens to come first in the new file, the document's stays.
  static std::shared_ptr<const OriginalBuffer> make(
      std::shared_ptr<MMapWrapper> mmap, std::optional<text::DetectedEncoding> encoding = std::nullopt,
      std::optional<text::LineEnding> lineEnding = std::nullopt);

  // An empty buffer with no file behind it, for untitled documents.
  static std::shared_ptr<const OriginalBuffer> untitled();

  const MMapWrapper& mmap() const { return *mmap_; }
  const std::shared_ptr<MMapWrapper>& sharedMmap() const { return mmap_; }
  text::DetectedEncoding encoding() const { return encoding_; }
  text::LineEnding lineEnding() const { return lineEnding_; }
  int64_t contentStart() const { return contentStart_; }
  // The document's length before any edit: the file's length less the mark.
  int64_t documentLength() const { return mmap_->length() - contentStart_; }

 private:
  OriginalBuffer(std::shared_ptr<MMapWrapper> mmap, text::DetectedEncoding encoding,
                 text::LineEnding lineEnding, int64_t contentStart);

  std::shared_ptr<MMapWrapper> mmap_;
  text::DetectedEncoding encoding_;
  text::LineEnding lineEnding_;
  int64_t contentStart_;
};

}  // namespace quorin::storage
