#pragma once

#include <expected>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "persistence/FileIo.h"
#include "persistence/PatchJournal.h"
#include "persistence/SaveTypes.h"
#include "persistence/UndoEntry.h"
#include "persistence/VolumeInfo.h"
#include "storage/FileIdentity.h"
#include "storage/PieceTableSnapshot.h"

namespace quorin::persistence {

// Turns the document's text into bytes of its file: the UTF-8 text as is,
// or re-encoded for a document transcoded from another encoding. Called
// chunk by chunk in order, then once with `last` set; returns the encoding's
// name when a character cannot be represented.
using SaveEncoder = std::function<std::expected<std::string, std::string>(std::string_view chunk, bool last)>;

// Everything one save needs, gathered on the main thread.
struct SaveJob {
  std::string targetPath;  // as the user named it; a symbolic link is saved through
  storage::PieceTableSnapshot snapshot;
  // Document offsets; the file's layout (where document byte 0 lies in it)
  // comes from the snapshot's original buffer.
  std::vector<PatchEdit> edits;  // empty when the history cannot tell what changed since the save
  storage::FileIdentity openedIdentity;
  bool transcoded = false;
  bool inPlaceEnabled = true;
  SaveEncoder encoder;  // null: write the bytes unchanged
};

struct SaveResult {
  SaveOutcome outcome;
  storage::FileIdentity newIdentity;
};

// Writes a document back to its file: an in-place patch of its
// length-preserving edits when allowed (milliseconds, journaled), an atomic
// rewrite otherwise (a new file beside it, flushed, renamed over it).
//
// Assumptions and commit points (as in docs/saving.md): the patch's commit
// point is the flush after the last pwrite — before it the journal restores
// the old bytes, after it the journal is deleted; the rewrite's commit point
// is the rename, before which the target is untouched. A journal the patch
// had to keep stays locked until the whole save (rewrite included) is over.
//
// Offsets: the edit list counts document bytes; the file has the document
// `contentStart` bytes in (after its byte-order mark). The patch turns one
// into the other once, on entry; the journal, the pre-image check, the
// writes and the rollback all work in file offsets from there on.
//
// Thread-safety: an object is used by one save at a time, off the main thread.
class SaveCoordinator {
 public:
  static constexpr int64_t kMaxRegions = 999;
  static constexpr int64_t kRegionCap = 1000;
  static constexpr int64_t kMaxRegionBytes = 8'388'608;

  explicit SaveCoordinator(FileIo& io = FileIo::system(), const VolumeInfo& volumes = VolumeInfo::system(),
                           std::optional<std::filesystem::path> journalDirectory = std::nullopt);

  // The undo entries above the save point, oldest first, as patch edits: a
  // batch contributes its edits; a deletion followed by an insertion of the
  // same place (or the reverse) becomes one replacement.
  static std::vector<PatchEdit> buildEditList(std::span<const UndoEntry> entries);

  // Chooses the strategy and writes. Blocking: run it off the main thread.
  std::expected<SaveResult, SaveError> save(const SaveJob& job);
  // The 14 steps of the patch; on success the file's identity afterwards.
  // `contentStart` is the file offset of document byte 0.
  std::expected<storage::FileIdentity, InPlaceRejection> tryInPlacePatch(const std::string& path,
                                                                         std::span<const PatchEdit> edits,
                                                                         const storage::FileIdentity& opened,
                                                                         uint64_t contentStart);
  // Writes the file whole: the byte-order mark the file was found with (a
  // re-encoding writes its own), then the snapshot.
  std::expected<storage::FileIdentity, SaveError> atomicRewrite(const std::string& path,
                                                                const storage::PieceTableSnapshot& snapshot,
                                                                const SaveEncoder& encoder);

 private:
  FileIo& io_;
  const VolumeInfo& volumes_;
  std::optional<std::filesystem::path> journalDirectory_;
  // A journal left by a patch that failed after touching the file: its lock
  // is held until the save that fell back to the rewrite ends.
  std::optional<PatchJournal::Written> keptJournal_;
};

}  // namespace quorin::persistence
