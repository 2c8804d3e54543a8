#include "search/LineVisibilityBitset.h"

#include <algorithm>
#include <bit>
#include <cstring>

// Rank and select are popcount loops; without this the compiler would emit
// the portable bit-twiddling sequence, several times slower than the one
// instruction every x86-64 processor of the last fifteen years has.
#if defined(__x86_64__)
#define QUORIN_POPCNT __attribute__((target("popcnt")))
#else
#define QUORIN_POPCNT
#endif

namespace quorin::search {
namespace {

constexpr int64_t kWordsPerBlock = LineVisibilityBitset::kBlockLines / 64;

int64_t wordsFor(int64_t lines) { return (lines + 63) / 64; }

}  // namespace

LineVisibilityBitset::LineVisibilityBitset(int64_t lineCount) {
  lineCount_ = std::max<int64_t>(lineCount, 0);
  wordCount_ = wordsFor(lineCount_);
  capacityWords_ = std::max<int64_t>(wordCount_, 1);
  words_ = std::make_unique<uint64_t[]>(static_cast<size_t>(capacityWords_));  // zeroed
  rebuildRankDirectory();
}

void LineVisibilityBitset::reserveWords(int64_t words) {
  if (words <= capacityWords_) return;
  const int64_t capacity = std::max(words, capacityWords_ * 2);
  auto grown = std::make_unique<uint64_t[]>(static_cast<size_t>(capacity));
  std::memcpy(grown.get(), words_.get(), static_cast<size_t>(wordCount_) * sizeof(uint64_t));
  words_ = std::move(grown);
  capacityWords_ = capacity;
}

void LineVisibilityBitset::set(int64_t line, bool visible) {
  if (line < 0 || line >= lineCount_) return;
  const uint64_t bit = uint64_t{1} << (line % 64);
  uint64_t& w = words_[static_cast<size_t>(line / 64)];
  w = visible ? (w | bit) : (w & ~bit);
  rebuildRankDirectory();
}

QUORIN_POPCNT void LineVisibilityBitset::rebuildRankDirectory() {
  const int64_t blocks = (wordCount_ + kWordsPerBlock - 1) / kWordsPerBlock;
  blockRank_.assign(static_cast<size_t>(blocks + 1), 0);
  int64_t running = 0;
  for (int64_t w = 0; w < wordCount_; ++w) {
    if (w % kWordsPerBlock == 0) blockRank_[static_cast<size_t>(w / kWordsPerBlock)] = running;
    running += std::popcount(word(w));
  }
  blockRank_.back() = running;
  visibleCount_ = running;
}

void LineVisibilityBitset::appendRun(int64_t count, bool visible) {
  if (count <= 0) return;
  // Finish the partial last word, then whole words, then the remainder.
  while (count > 0 && lineCount_ % 64 != 0) {
    const int take = static_cast<int>(std::min<int64_t>(count, 64 - lineCount_ % 64));
    appendBits(visible ? ~uint64_t{0} : 0, take);
    count -= take;
  }
  const int64_t whole = count / 64;
  if (whole > 0) {
    reserveWords(wordCount_ + whole);
    std::fill_n(words_.get() + wordCount_, whole, visible ? ~uint64_t{0} : 0);
    wordCount_ += whole;
    lineCount_ += whole * 64;
    count -= whole * 64;
  }
  if (count > 0) appendBits(visible ? ~uint64_t{0} : 0, static_cast<int>(count));
}

void LineVisibilityBitset::appendBits(uint64_t bits, int count) {
  count = std::clamp(count, 0, 64);
  if (count == 0) return;
  if (count < 64) bits &= (uint64_t{1} << count) - 1;
  const int used = static_cast<int>(lineCount_ % 64);
  reserveWords(wordsFor(lineCount_ + count));
  if (used == 0) {
    words_[static_cast<size_t>(wordCount_)] = bits;
  } else {
    words_[static_cast<size_t>(wordCount_ - 1)] |= bits << used;
    if (used + count > 64) words_[static_cast<size_t>(wordCount_)] = bits >> (64 - used);
  }
  lineCount_ += count;
  wordCount_ = wordsFor(lineCount_);
}

void LineVisibilityBitset::appendRange(const LineVisibilityBitset& source, int64_t from, int64_t to) {
  while (from < to) {
    const int64_t bit = from % 64;
    const int take = static_cast<int>(std::min<int64_t>(to - from, 64 - bit));
    appendBits(source.word(from / 64) >> bit, take);
    from += take;
  }
}

LineVisibilityBitset LineVisibilityBitset::spliced(int64_t from, int64_t removed, int64_t inserted,
                                                   bool insertedVisible) const {
  from = std::clamp<int64_t>(from, 0, lineCount_);
  removed = std::clamp<int64_t>(removed, 0, lineCount_ - from);
  inserted = std::max<int64_t>(inserted, 0);
  LineVisibilityBitset result;
  result.reserveWords(wordsFor(lineCount_ - removed + inserted));
  result.appendRange(*this, 0, from);
  result.appendRun(inserted, insertedVisible);
  result.appendRange(*this, from + removed, lineCount_);
  result.rebuildRankDirectory();
  return result;
}

bool LineVisibilityBitset::isVisible(int64_t line) const {
  if (line < 0 || line >= lineCount_) return false;
  return (word(line / 64) >> (line % 64)) & 1;
}

QUORIN_POPCNT int64_t LineVisibilityBitset::rank(int64_t line) const {
  if (line <= 0) return 0;
  line = std::min(line, lineCount_);
  const int64_t block = line / kBlockLines;
  if (block + 1 >= static_cast<int64_t>(blockRank_.size())) return visibleCount_;
  int64_t count = blockRank_[static_cast<size_t>(block)];
  const int64_t lastWord = line / 64;
  for (int64_t w = block * kWordsPerBlock; w < lastWord; ++w) count += std::popcount(word(w));
  const int64_t bit = line % 64;
  if (bit != 0) count += std::popcount(word(lastWord) & ((uint64_t{1} << bit) - 1));
  return count;
}

std::optional<int64_t> LineVisibilityBitset::row(int64_t line) const {
  if (!isVisible(line)) return std::nullopt;
  return rank(line);
}

QUORIN_POPCNT std::optional<int64_t> LineVisibilityBitset::line(int64_t row) const {
  if (row < 0 || row >= visibleCount_) return std::nullopt;
  // The last block whose entry is <= row; the final (total) entry is > row.
  const auto after = std::upper_bound(blockRank_.begin(), blockRank_.end() - 1, row);
  const int64_t block = (after - blockRank_.begin()) - 1;
  int64_t remainder = row - blockRank_[static_cast<size_t>(block)];
  int64_t w = block * kWordsPerBlock;
  for (;; ++w) {
    const int ones = std::popcount(word(w));
    if (remainder < ones) break;
    remainder -= ones;
  }
  uint64_t bits = word(w);
  for (; remainder > 0; --remainder) bits &= bits - 1;
  return w * 64 + std::countr_zero(bits);
}

std::optional<int64_t> LineVisibilityBitset::nextVisibleLine(int64_t line) const {
  line = std::max<int64_t>(line, 0);
  if (line >= lineCount_) return std::nullopt;
  int64_t w = line / 64;
  uint64_t bits = word(w) & (~uint64_t{0} << (line % 64));
  while (bits == 0) {
    if (++w >= wordCount_) return std::nullopt;
    bits = word(w);
  }
  const int64_t found = w * 64 + std::countr_zero(bits);
  if (found >= lineCount_) return std::nullopt;
  return found;
}

std::optional<int64_t> LineVisibilityBitset::previousVisibleLine(int64_t line) const {
  if (line < 0 || lineCount_ == 0) return std::nullopt;
  line = std::min(line, lineCount_ - 1);
  int64_t w = line / 64;
  const int64_t bit = line % 64;
  uint64_t bits = word(w) & (bit == 63 ? ~uint64_t{0} : (uint64_t{1} << (bit + 1)) - 1);
  while (bits == 0) {
    if (--w < 0) return std::nullopt;
    bits = word(w);
  }
  return w * 64 + 63 - std::countl_zero(bits);
}

}  // namespace quorin::search
