#include "persistence/SaveCoordinator.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <memory>

#include "base/Log.h"
#include "base/PageAligned.h"
#include "persistence/PatchJournal.h"

namespace quorin::persistence {
namespace {

constexpr int64_t kRewriteChunk = int64_t{4} << 20;

bool pureInsertion(const UndoEntry& e) { return e.removedLength() == 0 && e.insertedLength() > 0; }
bool pureDeletion(const UndoEntry& e) { return e.insertedLength() == 0 && e.removedLength() > 0; }

void flatten(const UndoEntry& entry, std::vector<const UndoEntry*>& out) {
  if (!entry.isBatch) {
    out.push_back(&entry);
    return;
  }
  for (const UndoEntry& sub : entry.batchSubEdits) flatten(sub, out);
}

std::string bytesOf(const SharedBytes& b) { return b ? *b : std::string(); }

InPlaceRejection reject(InPlaceRejection::Kind kind, int64_t a = 0, int64_t b = 0, int64_t c = 0) {
  return InPlaceRejection{kind, a, b, c, 0, {}};
}

InPlaceRejection rejectErrno(InPlaceRejection::Kind kind, int err) {
  return InPlaceRejection{kind, 0, 0, 0, err, {}};
}

InPlaceRejection rejectDetail(InPlaceRejection::Kind kind, std::string detail) {
  return InPlaceRejection{kind, 0, 0, 0, 0, std::move(detail)};
}

SaveError saveError(SaveError::Kind kind, int err, std::string text = {}) {
  return SaveError{kind, 0, 0, std::move(text), err};
}

// A file that is a symbolic link is saved through to the file it names.
std::string resolved(const std::string& path) {
  std::error_code ec;
  const auto real = std::filesystem::canonical(path, ec);
  return ec ? path : real.string();
}

}  // namespace

SaveCoordinator::SaveCoordinator(FileIo& io, const VolumeInfo& volumes,
                                 std::optional<std::filesystem::path> journalDir)
    : io_(io), volumes_(volumes), journalDirectory_(std::move(journalDir)) {}

std::vector<PatchEdit> SaveCoordinator::buildEditList(std::span<const UndoEntry> entries) {
  std::vector<const UndoEntry*> flat;
  for (const UndoEntry& e : entries) flatten(e, flat);
  std::vector<PatchEdit> edits;
  for (size_t i = 0; i < flat.size(); ++i) {
    const UndoEntry& e = *flat[i];
    if (i + 1 < flat.size()) {
      const UndoEntry& next = *flat[i + 1];
      const bool pair =
          next.docOffsetAtEdit == e.docOffsetAtEdit &&
          ((pureDeletion(e) && pureInsertion(next)) || (pureInsertion(e) && pureDeletion(next)));
      if (pair) {
        // Either order: one replacement of the removed bytes by the inserted ones. Should that not be what
        // the file holds (an insertion the deletion then ate into), the pre-image check refuses the patch.
        const UndoEntry& removal = pureDeletion(e) ? e : next;
        const UndoEntry& insertion = pureDeletion(e) ? next : e;
        edits.push_back({static_cast<uint64_t>(e.docOffsetAtEdit), bytesOf(removal.originalBytes),
                         bytesOf(insertion.insertedBytes)});
        ++i;
        continue;
      }
    }
    edits.push_back(
        {static_cast<uint64_t>(e.docOffsetAtEdit), bytesOf(e.originalBytes), bytesOf(e.insertedBytes)});
  }
  return edits;
}

std::expected<SaveResult, SaveError> SaveCoordinator::save(const SaveJob& job) {
  const std::string path = resolved(job.targetPath);
  std::optional<InPlaceRejection> rejection;
  if (job.transcoded) {
    rejection = reject(InPlaceRejection::Kind::transcodedDocument);
  } else if (!job.inPlaceEnabled) {
    rejection = reject(InPlaceRejection::Kind::prefDisabled);
  } else {
    auto patched = tryInPlacePatch(path, job.edits, job.openedIdentity);
    if (patched)
      return SaveResult{{SaveOutcome::Kind::wrote, SaveStrategy::inPlacePatch, std::nullopt}, *patched};
    rejection = patched.error();
  }
  base::logLine("in-place patch rejected: " + rejection->describe() + "; falling back to atomic rewrite");
  auto rewritten = atomicRewrite(path, job.snapshot, job.encoder);
  if (!rewritten) return std::unexpected(rewritten.error());
  return SaveResult{{SaveOutcome::Kind::wrote, SaveStrategy::atomicRewrite, rejection}, *rewritten};
}

std::expected<storage::FileIdentity, InPlaceRejection> SaveCoordinator::tryInPlacePatch(
    const std::string& path, std::span<const PatchEdit> edits, const storage::FileIdentity& opened) {
  using K = InPlaceRejection::Kind;
  if (edits.empty()) return std::unexpected(reject(K::noUnsavedEdits));
  const auto count = static_cast<int64_t>(edits.size());
  if (count > kMaxRegions) return std::unexpected(reject(K::tooManyRegions, count, kRegionCap));
  for (int64_t i = 0; i < count; ++i) {
    const PatchEdit& e = edits[static_cast<size_t>(i)];
    const auto original = static_cast<int64_t>(e.originalBytes.size());
    const auto inserted = static_cast<int64_t>(e.insertedBytes.size());
    if (original != inserted) return std::unexpected(reject(K::lengthChangingEdit, i, original, inserted));
    if (original > kMaxRegionBytes) return std::unexpected(reject(K::regionTooLarge, i, original));
  }
  if (!volumes_.isLocal(path)) return std::unexpected(reject(K::nonLocalVolume));

  const int fd = io_.open(path.c_str(), O_RDWR, 0);
  if (fd < 0) return std::unexpected(rejectErrno(K::openRdwrFailed, errno));
  bool locked = false;
  auto fail = [&](InPlaceRejection r) {
    if (locked) io_.flock(fd, LOCK_UN);
    io_.close(fd);
    return std::unexpected(std::move(r));
  };
  struct stat st;
  if (io_.fstat(fd, &st) != 0) return fail(rejectErrno(K::fstatFailed, errno));
  const auto now = storage::FileIdentity::fromStat(st);
  if (now.inode != opened.inode) {
    return fail(rejectDetail(K::identityMismatch, "inode " + std::to_string(now.inode) + " != opened inode " +
                                                      std::to_string(opened.inode) +
                                                      " (file replaced or rotated)"));
  }
  if (now.mtimeSeconds != opened.mtimeSeconds || now.mtimeNanoseconds != opened.mtimeNanoseconds) {
    return fail(rejectDetail(K::identityMismatch, "mtime " + std::to_string(now.mtimeSeconds) + "." +
                                                      std::to_string(now.mtimeNanoseconds) + " != opened " +
                                                      std::to_string(opened.mtimeSeconds) + "." +
                                                      std::to_string(opened.mtimeNanoseconds) +
                                                      " (file modified externally)"));
  }
  // The clock behind mtime is coarse: a file cut short within the same tick as the open keeps its mtime.
  if (now.size != opened.size) {
    return fail(rejectDetail(K::identityMismatch, "size " + std::to_string(now.size) + " != opened size " +
                                                      std::to_string(opened.size) +
                                                      " (file modified externally)"));
  }
  if (io_.flock(fd, LOCK_EX | LOCK_NB) != 0) return fail(rejectErrno(K::flockFailed, errno));
  locked = true;

  // The file must still hold what every edit was made against.
  std::string onDisk;
  for (const PatchEdit& e : edits) {
    onDisk.assign(e.originalBytes.size(), '\0');
    size_t got = 0;
    while (got < onDisk.size()) {
      const ssize_t n = io_.pread(fd, onDisk.data() + got, onDisk.size() - got,
                                  static_cast<off_t>(e.docOffsetAtEdit + got));
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      got += static_cast<size_t>(n);
    }
    const auto offset = static_cast<int64_t>(e.docOffsetAtEdit);
    if (got < onDisk.size()) {
      return fail(
          reject(K::preReadFailed, offset, static_cast<int64_t>(got), static_cast<int64_t>(onDisk.size())));
    }
    if (onDisk != e.originalBytes) return fail(reject(K::preImageMismatch, offset));
  }

  std::vector<PatchJournal::Entry> entries;
  entries.reserve(edits.size());
  for (const PatchEdit& e : edits) entries.push_back({e.docOffsetAtEdit, e.originalBytes, e.insertedBytes});
  auto journal = PatchJournal::write(path, now, entries, io_, journalDirectory_);
  if (!journal) return fail(rejectDetail(K::journalWriteFailed, journal.error().describe()));

  // From here the file changes; a failure leaves the journal for the next launch to roll back.
  for (const PatchEdit& e : edits) {
    size_t written = 0;
    while (written < e.insertedBytes.size()) {
      const ssize_t n = io_.pwrite(fd, e.insertedBytes.data() + written, e.insertedBytes.size() - written,
                                   static_cast<off_t>(e.docOffsetAtEdit + written));
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      written += static_cast<size_t>(n);
    }
    if (written < e.insertedBytes.size()) {
      return fail(reject(K::partialPwrite, static_cast<int64_t>(e.docOffsetAtEdit),
                         static_cast<int64_t>(written), static_cast<int64_t>(e.insertedBytes.size())));
    }
  }
  if (durableFlush(io_, fd) != 0) return fail(rejectErrno(K::fsyncFailed, errno));
  struct stat after;
  const bool statted = io_.fstat(fd, &after) == 0;
  io_.flock(fd, LOCK_UN);
  io_.close(fd);
  PatchJournal::remove(*journal);
  return statted ? storage::FileIdentity::fromStat(after) : now;
}

namespace {

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

}  // namespace

std::expected<storage::FileIdentity, SaveError> SaveCoordinator::atomicRewrite(
    const std::string& path, const storage::PieceTableSnapshot& text, const SaveEncoder& encoder) {
  using K = SaveError::Kind;
  const std::filesystem::path target(path);
  const std::filesystem::path parent = target.has_parent_path() ? target.parent_path() : ".";
  const int64_t length = text.totalLength();
  const auto need = static_cast<uint64_t>(static_cast<double>(length) * 1.1);
  if (const auto available = volumes_.availableBytes(parent); available && *available < need) {
    return std::unexpected(SaveError{K::insufficientSpace, need, *available, {}, 0});
  }

  // A private directory beside the target: same file system, so the rename is atomic.
  std::string pattern = (parent / ".quorin-save-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) return std::unexpected(saveError(K::openFailed, errno, pattern));
  const std::filesystem::path tempDir = pattern;
  const std::filesystem::path temp = tempDir / target.filename();
  auto cleanUp = [&] {
    std::error_code ignored;
    std::filesystem::remove_all(tempDir, ignored);
  };
  const int fd = io_.open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
  if (fd < 0) {
    const int err = errno;
    cleanUp();
    return std::unexpected(saveError(K::openFailed, err, temp.string()));
  }
  auto fail = [&](SaveError e) {
    io_.close(fd);
    cleanUp();
    return std::unexpected(std::move(e));
  };
  auto writeAll = [&](std::string_view bytes) -> int {
    size_t done = 0;
    while (done < bytes.size()) {
      const ssize_t n = io_.write(fd, bytes.data() + done, bytes.size() - done);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return n == 0 ? ENOSPC : errno;
      done += static_cast<size_t>(n);
    }
    return 0;
  };

  base::ReadBuffer buffer(static_cast<size_t>(kRewriteChunk));
  // Copies document bytes [from, to) through the buffer (encoding them when asked).
  auto copyThrough = [&](int64_t from, int64_t to, bool lastSpan) -> std::optional<SaveError> {
    for (int64_t at = from; at < to || (encoder && lastSpan && at == to); at += kRewriteChunk) {
      const int64_t got = at < to ? text.copyBytes({at, std::min(to, at + kRewriteChunk)}, buffer.data()) : 0;
      std::string_view chunk(reinterpret_cast<const char*>(buffer.data()), static_cast<size_t>(got));
      const bool last = lastSpan && at + kRewriteChunk >= to;
      if (encoder) {
        auto encoded = encoder(chunk, last);
        if (!encoded) return saveError(K::encodingIncompatible, 0, encoded.error());
        if (int err = writeAll(*encoded)) return saveError(K::writeFailed, err);
        if (last) break;
      } else if (int err = writeAll(chunk)) {
        return saveError(K::writeFailed, err);
      }
    }
    return std::nullopt;
  };
  // Bytes of the original file are copied by the kernel, file to file, as cp does: no trip through our
  // memory, and file systems that can share extents do. Inserted bytes, a re-encoding, or a kernel that
  // cannot, go through the buffer.
  bool kernelCopy = !encoder && text.originalBuffer().mmap().fd() >= 0;
  const auto& pieces = text.pieces();
  for (size_t i = 0; i < pieces.size(); ++i) {
    const int64_t start = i == 0 ? 0 : text.prefixLengths()[i - 1];
    const int64_t end = text.prefixLengths()[i];
    const bool lastSpan = i + 1 == pieces.size();
    if (kernelCopy && pieces[i].source == storage::PieceSource::original) {
      off_t offset = static_cast<off_t>(pieces[i].offset);
      int64_t left = end - start;
      while (left > 0) {
        const ssize_t n =
            io_.copyFileRange(text.originalBuffer().mmap().fd(), &offset, fd, static_cast<size_t>(left));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EXDEV || errno == ENOSYS || errno == EINVAL || errno == EOPNOTSUPP)) {
          kernelCopy = false;
          break;
        }
        if (n < 0) return fail(saveError(K::writeFailed, errno));
        if (n == 0) {  // the file shrank behind us: what is gone is gone, as in every other read
          left = 0;
          break;
        }
        left -= n;
      }
      if (left == 0) continue;
      if (auto error = copyThrough(end - left, end, lastSpan)) return fail(*error);
      continue;
    }
    if (auto error = copyThrough(start, end, lastSpan)) return fail(*error);
  }
  if (pieces.empty() && encoder) {
    if (auto error = copyThrough(0, 0, true)) return fail(*error);
  }
  if (durableFlush(io_, fd) != 0) return fail(saveError(K::fsyncFailed, errno));
  // The new file takes the old one's permissions and, where we may, its owner.
  struct stat old;
  if (::stat(path.c_str(), &old) == 0) {
    (void)::fchmod(fd, old.st_mode & 07777);
    (void)::fchown(fd, old.st_uid, old.st_gid);
  } else {
    // A new file gets the mode any other program would give it.
    (void)::fchmod(fd, 0666 & ~processUmask());
  }
  struct stat written;
  const bool statted = io_.fstat(fd, &written) == 0;
  io_.close(fd);
  if (io_.rename(temp.c_str(), path.c_str()) != 0) {
    const int err = errno;
    cleanUp();
    return std::unexpected(saveError(K::renameFailed, err));
  }
  const int dirFd = io_.open(parent.c_str(), O_RDONLY | O_DIRECTORY, 0);
  if (dirFd >= 0) {
    durableFlush(io_, dirFd);
    io_.close(dirFd);
  }
  cleanUp();
  if (statted) return storage::FileIdentity::fromStat(written);
  return storage::FileIdentity::ofPath(path).value_or(storage::FileIdentity{});
}

}  // namespace quorin::persistence
