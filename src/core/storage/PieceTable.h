#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/Mutex.h"
#include "storage/AppendBuffer.h"
#include "storage/ByteRange.h"
#include "storage/EditResult.h"
#include "storage/OriginalBuffer.h"
#include "storage/Piece.h"
#include "storage/PieceTableSnapshot.h"

namespace quorin::storage {

// The document's text: an ordered list of pieces over the mapped original
// file and the append buffer. Editing a multi-gigabyte file never copies the
// file; an edit rewrites only the piece list (O(pieces), kept short by
// compaction). All positions are byte offsets of the encoded text.
//
// The table is the single source of the document's version: every applied
// edit or bulk edit raises it by one; no-ops and compaction do not.
//
// Thread-safety: any thread may call any method. One lock guards the piece
// list, the length and the version, and is held for the duration of an edit
// (never across a callback); compaction merges outside it. Lock order: the
// table's lock, then the append buffer's.
class PieceTable {
 public:
  struct BulkEditSite {
    ByteRange range;    // of the current document
    std::string bytes;  // replacement; may be empty
  };

  struct BulkEditResult {
    int64_t sitesApplied = 0;
    int64_t bytesRemoved = 0;
    int64_t bytesInserted = 0;
    int64_t netByteDelta = 0;
    int64_t newVersion = 0;
    std::vector<bool> siteApplied;  // one per site, in the order given
  };

  struct CompactionResult {
    int64_t piecesBefore = 0;
    int64_t piecesAfter = 0;  // the table's count afterwards: piecesBefore unless swapped
    bool swapped = false;     // whether the merged list was installed
    double elapsedSeconds = 0;
  };

  // A table over the whole original text: one piece, or none for an empty document.
  explicit PieceTable(std::shared_ptr<const OriginalBuffer> original,
                      std::shared_ptr<AppendBuffer> append = std::make_shared<AppendBuffer>());
  PieceTable(const PieceTable&) = delete;
  PieceTable& operator=(const PieceTable&) = delete;

  PieceTableSnapshot snapshot() const;

  // Inserts bytes at `offset`. An offset outside [0, totalLength] is a
  // programming error and stops the program. Empty bytes: a no-op.
  EditResult insert(std::string_view bytes, int64_t offset);

  // Deletes the range, clamped to the document. A range whose end is before
  // its start (or a negative start) stops the program. An empty range: a no-op.
  EditResult deleteRange(ByteRange range);

  // Replaces the range (clamped; the same contract as deleteRange) by
  // `bytes` as one edit: one version bump, one EditResult. Empty range and
  // bytes: a no-op.
  EditResult replace(ByteRange range, std::string_view bytes);
  // Applies many replacements as one edit in one pass over the piece list:
  // one version bump and one undo step, however many sites. Sites must come
  // in document order without overlap; a site that does not (or is
  // reversed) is skipped and reported, never fatal.
  BulkEditResult applyBulkEdits(std::span<const BulkEditSite> sites);

  // Merges pieces that continue each other in the same source. The merge
  // runs outside the lock and gives up past `timeBudgetSeconds`; an edit that
  // lands meanwhile wins and the merged list is dropped. The text and the
  // version are unchanged either way.
  CompactionResult compact(double timeBudgetSeconds);

  const OriginalBuffer& originalBuffer() const { return *original_; }
  const std::shared_ptr<const OriginalBuffer>& sharedOriginalBuffer() const { return original_; }
  const std::shared_ptr<AppendBuffer>& appendBuffer() const { return append_; }
  text::DetectedEncoding encoding() const { return original_->encoding(); }
  int64_t totalLength() const;
  int64_t version() const;
  size_t pieceCount() const;

  // Reads under the lock: the same as on a snapshot taken now.
  std::optional<uint8_t> byte(int64_t offset) const { return snapshot().byte(offset); }
  std::optional<std::string> readBytes(ByteRange range) const { return snapshot().readBytes(range); }
  std::string text(ByteRange range) const { return snapshot().text(range); }

 private:
  // Installs a new list and raises the version.
  void rebuildLocked(std::vector<Piece> pieces) REQUIRES(lock_);
  std::vector<int64_t> lineStartsIn(std::string_view bytes, int64_t offset) const;

  const std::shared_ptr<const OriginalBuffer> original_;
  const std::shared_ptr<AppendBuffer> append_;

  mutable base::Mutex lock_;
  std::shared_ptr<const PieceList> list_ GUARDED_BY(lock_);
  int64_t version_ GUARDED_BY(lock_) = 0;
};

}  // namespace quorin::storage
