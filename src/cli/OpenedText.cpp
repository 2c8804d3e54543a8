#include "OpenedText.h"

#include "storage/MMapWrapper.h"
#include "text/EncodingDetector.h"
#include "text/Transcoder.h"

namespace quorin::cli {

std::expected<OpenedText, std::string> openText(const std::string& path, bool wantScratch) {
  auto mmap = storage::MMapWrapper::open(path);
  if (!mmap) return std::unexpected(mmap.error().describe());
  const auto encoding = storage::detectFileEncoding(**mmap);
  const bool copy = text::needsWorkingCopy(encoding);

  OpenedText opened;
  auto scratch = copy || wantScratch
                     ? storage::ScratchDirectory::createForDocument()
                     : std::expected<std::unique_ptr<storage::ScratchDirectory>, std::string>{};
  if (copy) {
    if (!scratch) return std::unexpected(scratch.error());
    const auto copyPath = (*scratch)->path() / text::newWorkingCopyFileName();
    if (auto transcoded = text::transcodeFileToUtf8(path, encoding, copyPath); !transcoded)
      return std::unexpected(transcoded.error().describe());
    auto working = storage::MMapWrapper::open(copyPath.string());
    if (!working) return std::unexpected(working.error().describe());
    opened.original = storage::OriginalBuffer::make(*working, text::DetectedEncoding::utf8);
  } else {
    opened.original = storage::OriginalBuffer::make(*mmap, encoding);
  }
  if (scratch && *scratch) opened.scratch = std::move(*scratch);
  opened.table = std::make_shared<storage::PieceTable>(opened.original);
  return opened;
}

}  // namespace quorin::cli
