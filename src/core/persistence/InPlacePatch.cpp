// The in-place strategy of SaveCoordinator: overwrite only the edited
// regions of the file, journaled, under an exclusive lock.
#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

#include "persistence/PatchJournal.h"
#include "persistence/SaveCoordinator.h"

namespace quorin::persistence {
namespace {

using K = InPlaceRejection::Kind;

std::unexpected<InPlaceRejection> rejectErrno(K kind, int err) {
  return std::unexpected(InPlaceRejection{.kind = kind, .err = err});
}

std::unexpected<InPlaceRejection> rejectDetail(K kind, std::string detail) {
  return std::unexpected(InPlaceRejection{.kind = kind, .detail = std::move(detail)});
}

// Why the file on disk is not the one the document was opened from, if it is not.
std::optional<std::string> identityChange(const storage::FileIdentity& now,
                                          const storage::FileIdentity& opened) {
  auto n = [](auto v) { return std::to_string(v); };
  if (now.inode != opened.inode)
    return "inode " + n(now.inode) + " != opened inode " + n(opened.inode) + " (file replaced or rotated)";
  if (now.mtimeSeconds != opened.mtimeSeconds || now.mtimeNanoseconds != opened.mtimeNanoseconds) {
    return "mtime " + n(now.mtimeSeconds) + "." + n(now.mtimeNanoseconds) + " != opened " +
           n(opened.mtimeSeconds) + "." + n(opened.mtimeNanoseconds) + " (file modified externally)";
  }
  // The clock behind mtime is coarse: a file cut short within the same tick as the open keeps its mtime.
  if (now.size != opened.size)
    return "size " + n(now.size) + " != opened size " + n(opened.size) + " (file modified externally)";
  return std::nullopt;
}

// The checks that touch nothing: count, lengths, sizes.
std::optional<InPlaceRejection> checkEdits(std::span<const PatchEdit> edits) {
  if (edits.empty()) return InPlaceRejection{.kind = K::noUnsavedEdits};
  const auto count = static_cast<int64_t>(edits.size());
  if (count > SaveCoordinator::kMaxRegions) {
    return InPlaceRejection{
        .kind = K::tooManyRegions, .regionCount = count, .regionCap = SaveCoordinator::kRegionCap};
  }
  for (int64_t i = 0; i < count; ++i) {
    const PatchEdit& e = edits[static_cast<size_t>(i)];
    const auto original = static_cast<int64_t>(e.originalBytes.size());
    const auto inserted = static_cast<int64_t>(e.insertedBytes.size());
    if (original != inserted) {
      return InPlaceRejection{.kind = K::lengthChangingEdit,
                              .editIndex = i,
                              .originalLength = original,
                              .insertedLength = inserted};
    }
    if (original > SaveCoordinator::kMaxRegionBytes)
      return InPlaceRejection{.kind = K::regionTooLarge, .editIndex = i, .originalLength = original};
  }
  return std::nullopt;
}

// The one place where document offsets become file offsets.
std::vector<PatchJournal::Entry> fileRegions(std::span<const PatchEdit> edits, uint64_t contentStart) {
  std::vector<PatchJournal::Entry> regions;
  regions.reserve(edits.size());
  for (const PatchEdit& e : edits) {
    regions.push_back({.fileOffset = contentStart + e.docOffsetAtEdit,
                       .originalBytes = e.originalBytes,
                       .insertedBytes = e.insertedBytes});
  }
  return regions;
}

}  // namespace

std::expected<storage::FileIdentity, InPlaceRejection> SaveCoordinator::tryInPlacePatch(
    const std::string& path, std::span<const PatchEdit> edits, const storage::FileIdentity& opened,
    uint64_t contentStart) {
  if (auto rejected = checkEdits(edits)) return std::unexpected(std::move(*rejected));
  if (!volumes_.isLocal(path)) return std::unexpected(InPlaceRejection{.kind = K::nonLocalVolume});
  const std::vector<PatchJournal::Entry> regions = fileRegions(edits, contentStart);

  // Closing the descriptor, on every return, also releases the flock.
  const base::UniqueFd fd = openFd(io_, path.c_str(), O_RDWR);
  if (!fd) return rejectErrno(K::openRdwrFailed, errno);
  struct stat st;
  if (io_.fstat(fd.get(), &st) != 0) return rejectErrno(K::fstatFailed, errno);
  const auto now = storage::FileIdentity::fromStat(st);
  if (auto change = identityChange(now, opened)) return rejectDetail(K::identityMismatch, std::move(*change));
  if (io_.flock(fd.get(), LOCK_EX | LOCK_NB) != 0) return rejectErrno(K::flockFailed, errno);

  // The file must still hold what every edit was made against.
  std::string onDisk;
  for (const PatchJournal::Entry& r : regions) {
    onDisk.assign(r.originalBytes.size(), '\0');
    const auto offset = static_cast<int64_t>(r.fileOffset);
    const auto read = preadAll(io_, fd.get(), onDisk.data(), onDisk.size(), static_cast<off_t>(offset));
    if (!read.complete()) {
      return std::unexpected(InPlaceRejection{.kind = K::preReadFailed,
                                              .fileOffset = offset,
                                              .bytesDone = static_cast<int64_t>(read.done),
                                              .bytesWanted = static_cast<int64_t>(read.wanted)});
    }
    if (onDisk != r.originalBytes)
      return std::unexpected(InPlaceRejection{.kind = K::preImageMismatch, .fileOffset = offset});
  }

  auto journal = PatchJournal::write(path, now, regions, io_, journalDirectory_);
  if (!journal) return rejectDetail(K::journalWriteFailed, journal.error().describe());

  // From here the file changes; a failure keeps the journal (still locked
  // until the save ends) for the next launch to roll back.
  for (const PatchJournal::Entry& r : regions) {
    const auto wrote = pwriteAll(io_, fd.get(), r.insertedBytes, static_cast<off_t>(r.fileOffset));
    if (!wrote.complete()) {
      keptJournal_ = std::move(*journal);
      return std::unexpected(InPlaceRejection{.kind = K::partialPwrite,
                                              .fileOffset = static_cast<int64_t>(r.fileOffset),
                                              .bytesDone = static_cast<int64_t>(wrote.done),
                                              .bytesWanted = static_cast<int64_t>(wrote.wanted)});
    }
  }
  if (durableFlush(io_, fd.get()) != 0) {
    const int err = errno;
    keptJournal_ = std::move(*journal);
    return rejectErrno(K::fsyncFailed, err);
  }
  struct stat after;
  const bool statted = io_.fstat(fd.get(), &after) == 0;
  // Removed while still locked: a recovery waiting for the lock then finds no journal.
  PatchJournal::remove(journal->url);
  return statted ? storage::FileIdentity::fromStat(after) : now;
}

}  // namespace quorin::persistence
