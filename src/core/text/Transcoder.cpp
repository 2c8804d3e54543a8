#include "text/Transcoder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <random>
#include <utility>
#include <vector>

#include "base/Errno.h"
#include "base/Transfer.h"
#include "base/UniqueFd.h"
#include "text/IcuConverter.h"

namespace quorin::text {
namespace {

// Owns a file being created and, unless kept, removes it: a half-written
// working copy is never left behind.
class PartialFile {
 public:
  PartialFile(base::UniqueFd fd, std::filesystem::path path) : fd_(std::move(fd)), path_(std::move(path)) {}
  ~PartialFile() {
    fd_.reset();
    if (!kept_) ::unlink(path_.c_str());
  }
  PartialFile(const PartialFile&) = delete;
  PartialFile& operator=(const PartialFile&) = delete;
  int fd() const { return fd_.get(); }
  // Closes the file and keeps it; false (errno set) when closing reports a
  // late write error, and the file is then removed after all.
  bool closeAndKeep() {
    if (fd_.close() != 0) return false;
    kept_ = true;
    return true;
  }

 private:
  base::UniqueFd fd_;
  std::filesystem::path path_;
  bool kept_ = false;
};

}  // namespace

bool needsWorkingCopy(DetectedEncoding encoding) {
  return encoding != DetectedEncoding::utf8 && encoding != DetectedEncoding::utf8WithBOM;
}

std::string newWorkingCopyFileName() {
  std::random_device device;
  std::array<uint8_t, 16> bytes;
  for (size_t i = 0; i < bytes.size(); i += 4) {
    const uint32_t r = device();
    for (size_t k = 0; k < 4; ++k) bytes[i + k] = static_cast<uint8_t>(r >> (8 * k));
  }
  bytes[6] = static_cast<uint8_t>((bytes[6] & 0x0F) | 0x40);  // version 4
  bytes[8] = static_cast<uint8_t>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
  std::string out;
  char hex[3];
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) out.push_back('-');
    std::snprintf(hex, sizeof hex, "%02X", bytes[i]);
    out += hex;
  }
  return out + "-utf8-working.txt";
}

std::string TranscodeError::describe() const {
  switch (kind) {
    case Kind::openFailed: return "open(" + path + ") failed: " + base::errnoText(err);
    case Kind::statFailed: return "fstat failed: " + base::errnoText(err);
    case Kind::readFailed: return "read(" + path + ") failed: " + base::errnoText(err);
    case Kind::writeFailed: return "write(" + path + ") failed: " + base::errnoText(err);
    case Kind::cancelled: return "transcoding cancelled";
  }
  return "transcoding failed";
}

std::expected<TranscodeSummary, TranscodeError> transcodeToUtf8(int sourceFd, const std::string& sourcePath,
                                                                DetectedEncoding encoding,
                                                                const std::filesystem::path& destination,
                                                                const TranscodeOptions& options) {
  using Kind = TranscodeError::Kind;
  struct stat st {};
  if (::fstat(sourceFd, &st) != 0) return std::unexpected(TranscodeError{Kind::statFailed, {}, errno});
  const int64_t total = std::max<int64_t>(st.st_size, 0);

  base::UniqueFd out(::open(destination.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!out) return std::unexpected(TranscodeError{Kind::openFailed, destination.string(), errno});
  PartialFile file(std::move(out), destination);

  TranscodeSummary summary;
  const auto mark = byteOrderMark(encoding);
  if (!mark.empty() && total >= static_cast<int64_t>(mark.size())) {
    std::array<uint8_t, 4> head{};
    const auto read = base::preadAll(sourceFd, head.data(), mark.size(), 0);
    if (read.error != 0) return std::unexpected(TranscodeError{Kind::readFailed, sourcePath, read.error});
    if (read.complete() && std::equal(mark.begin(), mark.end(), head.begin())) {
      summary.markBytes = static_cast<int64_t>(mark.size());
    }
  }

  Utf8DecodeStream stream(encoding);
  const size_t blockBytes = std::max<size_t>(options.blockBytes, 1);
  std::vector<uint8_t> block(static_cast<size_t>(std::min<int64_t>(static_cast<int64_t>(blockBytes), total)) +
                             1);
  std::string utf8;
  int64_t offset = summary.markBytes;
  for (;;) {
    if (options.isCancelled && options.isCancelled())
      return std::unexpected(TranscodeError{Kind::cancelled, {}, 0});
    const size_t want =
        static_cast<size_t>(std::min<int64_t>(static_cast<int64_t>(blockBytes), total - offset));
    const auto read = base::preadAll(sourceFd, block.data(), want, static_cast<off_t>(offset));
    if (read.error != 0) return std::unexpected(TranscodeError{Kind::readFailed, sourcePath, read.error});
    offset += static_cast<int64_t>(read.done);
    const bool last = !read.complete() || offset >= total;
    utf8.clear();
    stream.convert({block.data(), read.done}, last, utf8);
    if (const auto wrote = base::writeAll(file.fd(), utf8); !wrote.complete())
      return std::unexpected(TranscodeError{Kind::writeFailed, destination.string(), wrote.error});
    summary.utf8Bytes += static_cast<int64_t>(utf8.size());
    if (options.progress) options.progress(offset, total);
    if (last) break;
  }
  summary.sourceBytes = offset;
  summary.substitutions = stream.substitutions();
  if (!file.closeAndKeep())
    return std::unexpected(TranscodeError{Kind::writeFailed, destination.string(), errno});
  return summary;
}

std::expected<TranscodeSummary, TranscodeError> transcodeFileToUtf8(const std::filesystem::path& source,
                                                                    DetectedEncoding encoding,
                                                                    const std::filesystem::path& destination,
                                                                    const TranscodeOptions& options) {
  const base::UniqueFd fd(::open(source.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd) return std::unexpected(TranscodeError{TranscodeError::Kind::openFailed, source.string(), errno});
  return transcodeToUtf8(fd.get(), source.string(), encoding, destination, options);
}

}  // namespace quorin::text
