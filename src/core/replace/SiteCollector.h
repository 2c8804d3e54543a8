#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "storage/PieceTable.h"
#include "storage/PieceTableSnapshot.h"

namespace quorin::replace {

// When a plan holds more sites than this, dense ones are merged into chunks.
inline constexpr int64_t kMergeAboveSites = 262'144;
// A merged site spans at most this much of the original text.
inline constexpr int64_t kMergedChunkBytes = 64 * 1024;

// Gathers the replacement sites of a plan (ascending, not overlapping) and
// decides how the document receives them. Each site becomes up to two
// pieces and one undo entry, so millions of them would make millions of
// pieces; past kMergeAboveSites, the sites that fit in kMergedChunkBytes of
// the original text are merged into one site whose bytes are that stretch
// with its replacements made. Fewer sites stay exact.
class SiteCollector {
 public:
  explicit SiteCollector(const storage::PieceTableSnapshot& text) : text_(text) {}

  // Sites must come in document order without overlap; others are dropped.
  void add(int64_t start, int64_t end, std::string_view bytes);
  int64_t count() const { return static_cast<int64_t>(sites_.size()); }
  bool keepsLength() const { return keepsLength_; }

  // The sites to apply; `merged` says whether chunks were merged.
  std::vector<storage::PieceTable::BulkEditSite> take(bool& merged, int64_t mergeAbove = kMergeAboveSites,
                                                      int64_t chunkBytes = kMergedChunkBytes);

 private:
  const storage::PieceTableSnapshot& text_;
  std::vector<storage::PieceTable::BulkEditSite> sites_;
  bool keepsLength_ = true;
};

}  // namespace quorin::replace
