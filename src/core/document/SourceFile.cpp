#include "document/SourceFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/PageAligned.h"
#include "storage/MMapWrapper.h"
#include "text/Encoder.h"
#include "text/EncodingDetector.h"
#include "text/Transcoder.h"

namespace quorin::document {

persistence::SaveEncoder SourceFile::encoder() const {
  if (!transcodedFrom) return nullptr;
  // Written back in the file's own encoding; a character it has no bytes for stops the save.
  auto encoder = std::make_shared<text::Encoder>(*transcodedFrom, hadByteOrderMark);
  return [encoder, name = std::string(text::displayName(*transcodedFrom))](
             std::string_view chunk, bool last) -> std::expected<std::string, std::string> {
    std::string out;
    const auto ok =
        encoder->encode({reinterpret_cast<const uint8_t*>(chunk.data()), chunk.size()}, last, out);
    if (!ok) return std::unexpected(name);
    return out;
  };
}

std::expected<LoadedText, OpenError> loadText(const std::string& path,
                                              std::optional<text::DetectedEncoding> chosen,
                                              const OpenOptions& options) {
  auto mapped = storage::MMapWrapper::open(path);
  if (!mapped) return std::unexpected(OpenError{mapped.error().describe()});
  LoadedText loaded;
  struct stat st;
  if (::fstat((*mapped)->fd(), &st) == 0) loaded.source.identity = storage::FileIdentity::fromStat(st);
  const text::DetectedEncoding encoding = chosen ? *chosen : storage::detectFileEncoding(**mapped);
  if (!text::needsWorkingCopy(encoding)) {
    loaded.original = storage::OriginalBuffer::make(*mapped, encoding);
    return loaded;
  }
  // Every other encoding is edited as a UTF-8 working copy in the scratch directory.
  auto scratch = storage::ScratchDirectory::createForDocument();
  if (!scratch) return std::unexpected(OpenError{"cannot create a scratch directory: " + scratch.error()});
  const auto working = (*scratch)->path() / text::newWorkingCopyFileName();
  text::TranscodeOptions transcode;
  transcode.progress = options.transcodeProgress;
  transcode.isCancelled = options.transcodeCancelled;
  auto summary = text::transcodeToUtf8((*mapped)->fd(), path, encoding, working, transcode);
  if (!summary) return std::unexpected(OpenError{summary.error().describe()});
  auto copy = storage::MMapWrapper::open(working.string());
  if (!copy) return std::unexpected(OpenError{copy.error().describe()});
  loaded.original = storage::OriginalBuffer::make(*copy, text::DetectedEncoding::utf8);
  loaded.source.transcodedFrom = encoding;
  loaded.source.hadByteOrderMark = summary->markBytes > 0;
  loaded.source.substitutions = summary->substitutions;
  loaded.source.workingScratch = std::move(*scratch);
  loaded.source.workingCopy = working;
  return loaded;
}

std::optional<std::filesystem::path> writeWorkingCopy(const storage::PieceTableSnapshot& text,
                                                      const std::filesystem::path& directory) {
  const auto path = directory / text::newWorkingCopyFileName();
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) return std::nullopt;
  base::ReadBuffer buffer(size_t{4} << 20);
  bool ok = true;
  for (int64_t at = 0; ok && at < text.totalLength(); at += static_cast<int64_t>(buffer.size())) {
    const int64_t got = text.copyBytes({at, at + static_cast<int64_t>(buffer.size())}, buffer.data());
    for (int64_t done = 0; ok && done < got;) {
      const ssize_t n = ::write(fd, buffer.data() + done, static_cast<size_t>(got - done));
      if (n < 0 && errno == EINTR) continue;
      ok = n > 0;
      if (ok) done += n;
    }
  }
  ::close(fd);
  if (!ok) {
    std::filesystem::remove(path);
    return std::nullopt;
  }
  return path;
}

}  // namespace quorin::document
