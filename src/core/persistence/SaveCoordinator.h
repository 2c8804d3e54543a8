#pragma once

#include <expected>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "persistence/FileIo.h"
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
// is the rename, before which the target is untouched.
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
  std::expected<storage::FileIdentity, InPlaceRejection> tryInPlacePatch(const std::string& path,
                                                                         std::span<const PatchEdit> edits,
                                                                         const storage::FileIdentity& opened);
  std::expected<storage::FileIdentity, SaveError> atomicRewrite(const std::string& path,
                                                                const storage::PieceTableSnapshot& snapshot,
                                                                const SaveEncoder& encoder);

 private:
  FileIo& io_;
  const VolumeInfo& volumes_;
  std::optional<std::filesystem::path> journalDirectory_;
};

}  // namespace quorin::persistence
