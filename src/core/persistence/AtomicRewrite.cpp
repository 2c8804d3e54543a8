// The rewrite strategy of SaveCoordinator: the whole text into a new file
// beside the target, flushed, then renamed over it.
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <fstream>

#include "base/PageAligned.h"
#include "base/Transfer.h"
#include "persistence/SaveCoordinator.h"
#include "persistence/SaveDirectory.h"
#include "text/DetectedEncoding.h"

namespace quorin::persistence {
namespace {

using K = SaveError::Kind;

constexpr int64_t kRewriteChunk = int64_t{4} << 20;

SaveError errnoError(K kind, int err, std::string text = {}) {
  return SaveError{.kind = kind, .text = std::move(text), .err = err};
}

// umask(2) cannot be read without being set, which would race with other
// threads creating files; the kernel reports it in /proc.
mode_t processUmask() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("Umask:", 0) == 0) return static_cast<mode_t>(std::stoul(line.substr(6), nullptr, 8));
  }
  return 022;
}

// The new file takes the old one's permissions and, where we may, its owner;
// a new file gets the mode any other program would give it.
void takeOverOwnership(FileIo& io, int fd, const std::string& target) {
  struct stat old;
  if (::stat(target.c_str(), &old) == 0) {
    (void)io.fchmod(fd, old.st_mode & 07777);
    (void)io.fchown(fd, old.st_uid, old.st_gid);
  } else {
    (void)io.fchmod(fd, 0666 & ~processUmask());
  }
}

// Writes a snapshot to a descriptor and counts what went through: the
// document bytes read (less than the snapshot's length when its source was
// cut short underneath) and the file bytes written.
class SnapshotWriter {
 public:
  SnapshotWriter(FileIo& io, int fd, const storage::PieceTableSnapshot& text, const SaveEncoder& encoder)
      : io_(io), fd_(fd), text_(text), encoder_(encoder), buffer_(static_cast<size_t>(kRewriteChunk)) {}

  std::optional<SaveError> run();
  int64_t documentBytesRead() const { return read_; }
  int64_t fileBytesWritten() const { return written_; }

 private:
  std::optional<SaveError> write(std::string_view bytes);
  std::optional<SaveError> copyThrough(int64_t from, int64_t to, bool lastSpan);
  std::optional<SaveError> copyOriginal(const storage::Piece& piece, int64_t start, int64_t end,
                                        bool lastSpan);

  FileIo& io_;
  const int fd_;
  const storage::PieceTableSnapshot& text_;
  const SaveEncoder& encoder_;
  base::ReadBuffer buffer_;
  // Bytes of the original file are copied by the kernel, file to file, as cp does: no trip through our
  // memory, and file systems that can share extents do. Inserted bytes, a re-encoding, or a kernel that
  // cannot, go through the buffer.
  bool kernelCopy_ = !encoder_ && text_.originalBuffer().mmap().fd() >= 0;
  int64_t read_ = 0;
  int64_t written_ = 0;
};

std::optional<SaveError> SnapshotWriter::write(std::string_view bytes) {
  const auto t = writeAll(io_, fd_, bytes);
  written_ += static_cast<int64_t>(t.done);
  if (!t.complete()) return errnoError(K::writeFailed, t.error);
  return std::nullopt;
}

// Copies document bytes [from, to) through the buffer (encoding them when asked).
std::optional<SaveError> SnapshotWriter::copyThrough(int64_t from, int64_t to, bool lastSpan) {
  for (int64_t at = from; at < to || (encoder_ && lastSpan && at == to); at += kRewriteChunk) {
    const int64_t got = at < to ? text_.copyBytes({at, std::min(to, at + kRewriteChunk)}, buffer_.data()) : 0;
    read_ += got;
    std::string_view chunk(reinterpret_cast<const char*>(buffer_.data()), static_cast<size_t>(got));
    const bool last = lastSpan && at + kRewriteChunk >= to;
    if (!encoder_) {
      if (auto error = write(chunk)) return error;
      continue;
    }
    auto encoded = encoder_(chunk, last);
    if (!encoded) return SaveError{.kind = K::encodingIncompatible, .text = encoded.error()};
    if (auto error = write(*encoded)) return error;
    if (last) break;
  }
  return std::nullopt;
}

std::optional<SaveError> SnapshotWriter::copyOriginal(const storage::Piece& piece, int64_t start, int64_t end,
                                                      bool lastSpan) {
  const int source = text_.originalBuffer().mmap().fd();
  off_t offset = static_cast<off_t>(piece.offset);  // advanced by each copy
  const auto size = static_cast<size_t>(end - start);
  // A copy that moves nothing means the source ended early (it shrank behind us): the byte count tells.
  const auto t = base::transferAll(
      size, false, [&](size_t done) { return io_.copyFileRange(source, &offset, fd_, size - done); });
  read_ += static_cast<int64_t>(t.done);
  written_ += static_cast<int64_t>(t.done);
  if (t.error == EXDEV || t.error == ENOSYS || t.error == EINVAL || t.error == EOPNOTSUPP) {
    kernelCopy_ = false;  // this kernel or these file systems cannot: the buffer does the rest
    return copyThrough(start + static_cast<int64_t>(t.done), end, lastSpan);
  }
  if (t.error != 0) return errnoError(K::writeFailed, t.error);
  return std::nullopt;
}

std::optional<SaveError> SnapshotWriter::run() {
  // The document begins after the file's byte-order mark; the file keeps it.
  // A re-encoding writes the source encoding's mark itself.
  if (!encoder_ && text_.originalBuffer().contentStart() > 0) {
    const auto mark = text::byteOrderMark(text_.encoding());
    if (auto error = write({reinterpret_cast<const char*>(mark.data()), mark.size()})) return error;
  }
  const auto& pieces = text_.pieces();
  for (size_t i = 0; i < pieces.size(); ++i) {
    const int64_t start = i == 0 ? 0 : text_.prefixLengths()[i - 1];
    const int64_t end = text_.prefixLengths()[i];
    const bool lastSpan = i + 1 == pieces.size();
    auto error = kernelCopy_ && pieces[i].source == storage::PieceSource::original
                     ? copyOriginal(pieces[i], start, end, lastSpan)
                     : copyThrough(start, end, lastSpan);
    if (error) return error;
  }
  if (pieces.empty() && encoder_) return copyThrough(0, 0, true);
  return std::nullopt;
}

// Document bytes whose original-file source is gone: a file cut short reads
// as zeros up to the end of its last page, not as an error, so only its
// size tells. Looked at after copying, it covers a cut made before or during.
int64_t lostOriginalBytes(const storage::PieceTableSnapshot& text) {
  const int fd = text.originalBuffer().mmap().fd();
  struct stat st;
  if (fd < 0 || ::fstat(fd, &st) != 0) return 0;
  int64_t lost = 0;
  for (const storage::Piece& piece : text.pieces()) {
    if (piece.source != storage::PieceSource::original) continue;
    lost += std::clamp<int64_t>(piece.sourceEnd() - st.st_size, 0, piece.length);
  }
  return lost;
}

SaveError shortfall(int64_t got, int64_t wanted, const char* what) {
  return SaveError{
      .kind = K::underlying,
      .text = "only " + std::to_string(got) + " of " + std::to_string(wanted) + " bytes " + what};
}

}  // namespace

std::expected<storage::FileIdentity, SaveError> SaveCoordinator::atomicRewrite(
    const std::string& path, const storage::PieceTableSnapshot& text, const SaveEncoder& encoder) {
  const std::filesystem::path target(path);
  const std::filesystem::path parent = target.has_parent_path() ? target.parent_path() : ".";
  const int64_t length = text.totalLength();
  const auto need = static_cast<uint64_t>(static_cast<double>(length) * 1.1);
  if (const auto available = volumes_.availableBytes(parent); available && *available < need)
    return std::unexpected(SaveError{.kind = K::insufficientSpace, .needed = need, .available = *available});

  // What killed saves left here goes before we add ours.
  removeAbandonedSaveDirectories(parent);
  // Declared before the file so that the file is closed before the directory goes, on every return.
  auto directory = SaveDirectory::create(parent);
  if (!directory) {
    return std::unexpected(
        errnoError(K::openFailed, directory.error(), (parent / SaveDirectory::kPrefix).string() + "XXXXXX"));
  }
  const std::filesystem::path temp = directory->path() / target.filename();
  base::UniqueFd fd = openFd(io_, temp.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
  if (!fd) return std::unexpected(errnoError(K::openFailed, errno, temp.string()));

  SnapshotWriter writer(io_, fd.get(), text, encoder);
  if (auto error = writer.run()) return std::unexpected(std::move(*error));
  // A source truncated underneath reads short (or as zeros); a shorter file must not replace the user's.
  const int64_t readable = std::min(writer.documentBytesRead(), length - lostOriginalBytes(text));
  if (readable != length) return std::unexpected(shortfall(readable, length, "of the text could be read"));
  // Mode and owner before the flush, so that the flush covers them too.
  takeOverOwnership(io_, fd.get(), path);
  if (durableFlush(io_, fd.get()) != 0) return std::unexpected(errnoError(K::fsyncFailed, errno));
  struct stat written;
  const bool statted = io_.fstat(fd.get(), &written) == 0;
  if (statted && written.st_size != writer.fileBytesWritten()) {
    return std::unexpected(
        shortfall(static_cast<int64_t>(written.st_size), writer.fileBytesWritten(), "reached the new file"));
  }
  if (fd.close() != 0) return std::unexpected(errnoError(K::writeFailed, errno));

  if (io_.rename(temp.c_str(), path.c_str()) != 0) return std::unexpected(errnoError(K::renameFailed, errno));
  flushDirectory(io_, parent.c_str());
  if (statted) return storage::FileIdentity::fromStat(written);
  return storage::FileIdentity::ofPath(path).value_or(storage::FileIdentity{});
}

}  // namespace quorin::persistence
