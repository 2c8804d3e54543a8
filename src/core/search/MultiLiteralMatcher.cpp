#include "search/MultiLiteralMatcher.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "search/ByteSearch.h"

namespace quorin::search {

struct MultiLiteralMatcher::Tables {
  size_t minLength = 0;  // m
  size_t block = 1;      // B
  unsigned hashBits = 10;
  std::vector<uint8_t> shift;         // 2^hashBits entries, each at most m - B + 1 (capped at 255)
  std::vector<uint32_t> bucketStart;  // 2^hashBits + 1 entries into bucketIds
  std::vector<uint32_t> bucketIds;    // literal indices, in listing order within a bucket
  std::vector<uint16_t>
      firstTwo;  // each literal's first two bytes (one byte: the byte twice), a cheap reject

  uint32_t hash(const uint8_t* end) const {  // the block ending at `end` (inclusive)
    uint32_t v = end[0];
    if (block >= 2) v |= uint32_t{end[-1]} << 8;
    if (block >= 3) v |= uint32_t{end[-2]} << 16;
    return (v * 0x9E3779B1u) >> (32 - hashBits);
  }
};

namespace {

constexpr int kStepsPerCheck = 4096;

uint16_t firstTwoOf(const uint8_t* p, size_t length) {
  return static_cast<uint16_t>(p[0] | (length >= 2 ? p[1] : p[0]) << 8);
}

class MultiLiteralScanner final : public WindowScanner {
 public:
  explicit MultiLiteralScanner(const MultiLiteralMatcher& matcher)
      : matcher_(matcher), t_(matcher.tables()) {}

  void scan(ScanWindow& w, MatchCollector& collector) override {
    if (matcher_.literalCount() == 0) return;
    if (matcher_.caseInsensitive()) asciiLowerInPlace(w.data, w.size);
    const size_t m = t_.minLength;
    const auto& literals = matcher_.literals();
    size_t start = w.begin;  // the window's first byte: a possible match start
    int steps = 0;
    while (start < w.end && start + m <= w.size) {
      const uint8_t* last = w.data + start + m - 1;
      const uint32_t h = t_.hash(last);
      if (const uint8_t s = t_.shift[h]; s != 0) {
        start += s;
        continue;
      }
      if (++steps == kStepsPerCheck) {
        steps = 0;
        if (!collector.keepGoing()) return;
      }
      const size_t room = w.size - start;
      const uint16_t two = firstTwoOf(w.data + start, room);
      size_t found = 0;
      for (uint32_t i = t_.bucketStart[h]; i < t_.bucketStart[h + 1]; ++i) {
        const uint32_t id = t_.bucketIds[i];
        const std::string& literal = literals[id];
        if (literal.size() > room || (literal.size() >= 2 && t_.firstTwo[id] != two)) continue;
        if (std::memcmp(w.data + start, literal.data(), literal.size()) != 0) continue;
        if (matcher_.wholeWord() && !isWholeWord(w, start, literal.size())) continue;
        found = literal.size();
        break;
      }
      if (found == 0) {
        ++start;
        continue;
      }
      if (!collector.add(start, found)) return;
      start += found;
    }
  }

 private:
  static bool isWholeWord(const ScanWindow& w, size_t at, size_t length) {
    if (at > 0 && isWordByte(w.data[at - 1])) return false;
    return at + length >= w.size || !isWordByte(w.data[at + length]);
  }

  const MultiLiteralMatcher& matcher_;
  const MultiLiteralMatcher::Tables& t_;
};

}  // namespace

MultiLiteralMatcher::MultiLiteralMatcher(std::vector<std::string> literals, bool caseInsensitive,
                                         bool wholeWord)
    : caseInsensitive_(caseInsensitive), wholeWord_(wholeWord) {
  for (auto& literal : literals) {
    if (literal.empty()) continue;
    maxLength_ = std::max(maxLength_, literal.size());
    literals_.push_back(caseInsensitive ? asciiLower(literal) : std::move(literal));
  }
  auto tables = std::make_shared<Tables>();
  Tables& t = *tables;
  t.minLength = literals_.empty() ? 1 : literals_.front().size();
  for (const auto& literal : literals_) t.minLength = std::min(t.minLength, literal.size());
  const size_t m = t.minLength;
  t.block = std::min<size_t>(m, 3);
  // About four table entries per block the literals hold keeps shifts long;
  // at most 2^20 (a megabyte of shifts, four of bucket starts).
  const size_t blocks = std::max<size_t>(1, literals_.size() * (m - t.block + 1));
  t.hashBits = std::clamp<unsigned>(std::bit_width(blocks * 4), 10, 20);
  const size_t size = size_t{1} << t.hashBits;
  const size_t maxShift = std::min<size_t>(m - t.block + 1, 255);
  t.shift.assign(size, static_cast<uint8_t>(maxShift));
  std::vector<uint32_t> counts(size + 1, 0);
  for (const auto& literal : literals_) {
    const auto* p = reinterpret_cast<const uint8_t*>(literal.data());
    // Blocks ending at j = B-1 … m-1 of the literal's m-byte prefix: a
    // window whose last block is this one may hold the literal m-1-j bytes on.
    for (size_t j = t.block - 1; j < m; ++j) {
      const uint32_t h = t.hash(p + j);
      t.shift[h] = static_cast<uint8_t>(std::min<size_t>(t.shift[h], m - 1 - j));
    }
    ++counts[t.hash(p + m - 1) + 1];
    t.firstTwo.push_back(firstTwoOf(p, literal.size()));
  }
  for (size_t h = 0; h < size; ++h) counts[h + 1] += counts[h];
  t.bucketStart = counts;
  t.bucketIds.resize(literals_.size());
  for (uint32_t id = 0; id < literals_.size(); ++id) {
    const auto* p = reinterpret_cast<const uint8_t*>(literals_[id].data());
    t.bucketIds[counts[t.hash(p + m - 1)]++] = id;
  }
  tables_ = std::move(tables);
}

std::unique_ptr<WindowScanner> MultiLiteralMatcher::makeScanner() const {
  return std::make_unique<MultiLiteralScanner>(*this);
}

}  // namespace quorin::search
