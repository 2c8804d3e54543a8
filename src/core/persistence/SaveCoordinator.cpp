#include "persistence/SaveCoordinator.h"

#include "base/Log.h"

namespace quorin::persistence {
namespace {

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
    const auto offset = static_cast<uint64_t>(e.docOffsetAtEdit);
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
        edits.push_back({.docOffsetAtEdit = offset,
                         .originalBytes = bytesOf(removal.originalBytes),
                         .insertedBytes = bytesOf(insertion.insertedBytes)});
        ++i;
        continue;
      }
    }
    edits.push_back({.docOffsetAtEdit = offset,
                     .originalBytes = bytesOf(e.originalBytes),
                     .insertedBytes = bytesOf(e.insertedBytes)});
  }
  return edits;
}

std::expected<SaveResult, SaveError> SaveCoordinator::save(const SaveJob& job) {
  using K = InPlaceRejection::Kind;
  const std::string path = resolved(job.targetPath);
  // Whatever journal a failed patch keeps stays locked until this save is over.
  struct ReleaseKeptJournal {
    std::optional<PatchJournal::Written>& kept;
    ~ReleaseKeptJournal() { kept.reset(); }
  } release{keptJournal_};
  std::optional<InPlaceRejection> rejection;
  if (job.transcoded) {
    // The file's bytes are not the document's: no offset of one is an offset of the other.
    rejection = InPlaceRejection{.kind = K::transcodedDocument};
  } else if (!job.inPlaceEnabled) {
    rejection = InPlaceRejection{.kind = K::prefDisabled};
  } else {
    const auto contentStart = static_cast<uint64_t>(job.snapshot.originalBuffer().contentStart());
    auto patched = tryInPlacePatch(path, job.edits, job.openedIdentity, contentStart);
    if (patched) {
      return SaveResult{.outcome = {.kind = SaveOutcome::Kind::wrote, .strategy = SaveStrategy::inPlacePatch},
                        .newIdentity = *patched};
    }
    rejection = patched.error();
  }
  base::logLine("in-place patch rejected: " + rejection->describe() + "; falling back to atomic rewrite");
  auto rewritten = atomicRewrite(path, job.snapshot, job.encoder);
  if (!rewritten) return std::unexpected(rewritten.error());
  return SaveResult{.outcome = {.kind = SaveOutcome::Kind::wrote,
                                .strategy = SaveStrategy::atomicRewrite,
                                .rejection = rejection},
                    .newIdentity = *rewritten};
}

}  // namespace quorin::persistence
