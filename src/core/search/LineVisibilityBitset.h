#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "search/LineProjection.h"

namespace quorin::search {

// One bit per document line saying whether the line is shown, with a rank
// directory (the visible count before every block of 512 lines) so that
// row(line) is O(1) and line(row) O(log lines). Built for filters over
// hundreds of millions of lines: one bit per line plus one integer per 512.
//
// Bulk producers append runs and call rebuildRankDirectory() once; set()
// rebuilds at once and is therefore linear, for single changes only.
// Queries read the directory as last built: call rebuildRankDirectory()
// after appending before querying rows.
//
// Thread-safety: none of its own. A built bitset that nobody modifies may be
// queried from any number of threads.
class LineVisibilityBitset final : public LineProjection {
 public:
  static constexpr int64_t kBlockLines = 512;

  // All lines hidden. A negative count is taken as 0.
  explicit LineVisibilityBitset(int64_t lineCount = 0);

  int64_t lineCount() const { return lineCount_; }
  int64_t wordCount() const { return wordCount_; }

  // Ignored for lines outside [0, lineCount). Rebuilds the rank directory.
  void set(int64_t line, bool visible);
  void rebuildRankDirectory();

  // Appending grows lineCount; the directory is stale until rebuilt.
  void appendRun(int64_t count, bool visible);
  // Appends the low `count` bits of `bits` (count is clamped to 0…64).
  void appendBits(uint64_t bits, int count);

  // The bitset of the document after an edit at line `from` that removed
  // `removed` lines and inserted `inserted`, every inserted line taking
  // `insertedVisible`. Out-of-range arguments are clamped.
  LineVisibilityBitset spliced(int64_t from, int64_t removed, int64_t inserted, bool insertedVisible) const;

  int64_t visibleLineCount() const override { return visibleCount_; }
  bool isVisible(int64_t line) const override;
  std::optional<int64_t> row(int64_t line) const override;
  std::optional<int64_t> line(int64_t row) const override;
  std::optional<int64_t> nextVisibleLine(int64_t line) const override;
  std::optional<int64_t> previousVisibleLine(int64_t line) const override;

  // Word `index` (0 ≤ index < wordCount()) of the bits, for readers that
  // combine bitsets 64 lines at a time; bits past lineCount are 0.
  uint64_t word(int64_t index) const { return words_[static_cast<size_t>(index)]; }
  // Visible lines before `line` (clamped to [0, lineCount]).
  int64_t rank(int64_t line) const;

 private:
  void reserveWords(int64_t words);
  // Copies bits [from, to) of `source` behind the current end.
  void appendRange(const LineVisibilityBitset& source, int64_t from, int64_t to);

  std::unique_ptr<uint64_t[]> words_;
  int64_t capacityWords_ = 0;
  int64_t wordCount_ = 0;
  int64_t lineCount_ = 0;
  std::vector<int64_t> blockRank_;  // per block of 8 words, then the total
  int64_t visibleCount_ = 0;
};

}  // namespace quorin::search
