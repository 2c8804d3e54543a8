#include "search/MultiLiteralMatcher.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <numeric>

#include "search/ByteSearch.h"
#include "search/MultiLiteralTeddy.h"

namespace quorin::search {
namespace {

constexpr int kStepsPerCheck = 4096;
constexpr int kBatchesPerCheck = 16;
constexpr uint32_t kNone = UINT32_MAX;
// Above this share of typical text passing the buckets, literals of 4 bytes
// or more are better served by the shift table's long jumps.
constexpr double kMaxBucketPassRate = 0.2;
constexpr size_t kKeyBytes = 8;

// The first n <= 8 bytes at p as a number, the first byte lowest, zeros above.
uint64_t keyAt(const uint8_t* p, size_t n) {
  uint64_t v = 0;
  std::memcpy(&v, p, n);
  if constexpr (std::endian::native == std::endian::big) v = __builtin_bswap64(v);
  return v;
}

uint64_t keepBytes(uint64_t v, size_t n) { return n >= 8 ? v : v & ((uint64_t{1} << (8 * n)) - 1); }

}  // namespace

struct MultiLiteralMatcher::Tables {
  size_t minLength = 1;  // m

  // The exact check: literals keyed by their first min(length, 8) bytes.
  struct Slot {
    uint64_t key = 0;
    uint32_t begin = 0, end = 0;  // into ids; end == 0: empty
    uint8_t length = 0;           // of the key
  };
  std::vector<Slot> slots;  // open addressing, a power of two
  unsigned slotBits = 4;
  std::vector<uint32_t> ids;  // per slot, ascending literal indices
  uint8_t allLengths = 0;     // bit k - 1: some literal has a key of k bytes

  // The prefilter: buckets, with the key lengths each set of buckets holds…
  std::unique_ptr<MultiLiteralTeddy> teddy;
  std::array<uint8_t, 256> lengthsOfBuckets{};
  // …or Wu–Manber's shift table over blocks of B bytes.
  size_t block = 1;
  unsigned hashBits = 10;
  std::vector<uint8_t> shift;

  uint32_t blockHash(const uint8_t* end) const {  // the block ending at `end` (inclusive)
    uint32_t v = end[0];
    if (block >= 2) v |= uint32_t{end[-1]} << 8;
    if (block >= 3) v |= uint32_t{end[-2]} << 16;
    return (v * 0x9E3779B1u) >> (32 - hashBits);
  }
  // A bit per hash of the keys, small enough to stay in the first-level
  // cache: most candidates that are no literal end here, before a probe of
  // the slots (which for thousands of literals do not fit there).
  std::vector<uint64_t> keyBits;
  unsigned keyBitsLog2 = 12;

  size_t slotHash(uint64_t key, size_t length) const {
    return static_cast<size_t>(((key ^ length) * 0x9E3779B97F4A7C15ull) >> (64 - slotBits));
  }
  size_t keyBit(uint64_t key, size_t length) const {
    return static_cast<size_t>(((key + length) * 0xD6E8FEB86659FD93ull) >> (64 - keyBitsLog2));
  }
  bool mayHold(uint64_t key, size_t length) const {
    const size_t bit = keyBit(key, length);
    return (keyBits[bit >> 6] >> (bit & 63)) & 1;
  }
  const Slot* find(uint64_t key, size_t length) const {
    if (!mayHold(key, length)) return nullptr;
    const size_t mask = slots.size() - 1;
    for (size_t i = slotHash(key, length);; i = (i + 1) & mask) {
      const Slot& s = slots[i];
      if (s.end == 0) return nullptr;
      if (s.key == key && s.length == length) return &s;
    }
  }
};

namespace {

using Tables = MultiLiteralMatcher::Tables;

// The literal indices worth checking: one of each distinct text, the first listed.
std::vector<uint32_t> distinctLiterals(const std::vector<std::string>& literals) {
  std::vector<uint32_t> order(literals.size());
  std::iota(order.begin(), order.end(), 0u);
  std::stable_sort(order.begin(), order.end(),
                   [&](uint32_t a, uint32_t b) { return literals[a] < literals[b]; });
  order.erase(std::unique(order.begin(), order.end(),
                          [&](uint32_t a, uint32_t b) { return literals[a] == literals[b]; }),
              order.end());
  return order;
}

void buildCheck(Tables& t, const std::vector<std::string>& literals, const std::vector<uint32_t>& kept) {
  struct Keyed {
    uint8_t length;
    uint64_t key;
    uint32_t id;
  };
  std::vector<Keyed> keyed;
  for (const uint32_t id : kept) {
    const auto* p = reinterpret_cast<const uint8_t*>(literals[id].data());
    const size_t k = std::min(literals[id].size(), kKeyBytes);
    keyed.push_back({static_cast<uint8_t>(k), keyAt(p, k), id});
    t.allLengths |= static_cast<uint8_t>(1u << (k - 1));
  }
  std::sort(keyed.begin(), keyed.end(), [](const Keyed& a, const Keyed& b) {
    return std::tie(a.length, a.key, a.id) < std::tie(b.length, b.key, b.id);
  });
  t.slotBits = std::max<unsigned>(4, std::bit_width(keyed.size() * 2));
  t.slots.assign(size_t{1} << t.slotBits, {});
  t.keyBitsLog2 = std::clamp<unsigned>(std::bit_width(keyed.size() * 8), 12, 17);  // at most 16 KiB
  t.keyBits.assign((size_t{1} << t.keyBitsLog2) / 64, 0);
  for (const Keyed& k : keyed) {
    const size_t bit = t.keyBit(k.key, k.length);
    t.keyBits[bit >> 6] |= uint64_t{1} << (bit & 63);
  }
  for (size_t i = 0; i < keyed.size();) {
    size_t j = i;
    while (j < keyed.size() && keyed[j].length == keyed[i].length && keyed[j].key == keyed[i].key) {
      t.ids.push_back(keyed[j].id);
      ++j;
    }
    size_t at = t.slotHash(keyed[i].key, keyed[i].length);
    while (t.slots[at].end != 0) at = (at + 1) & (t.slots.size() - 1);
    t.slots[at] = {keyed[i].key, static_cast<uint32_t>(t.ids.size() - (j - i)),
                   static_cast<uint32_t>(t.ids.size()), keyed[i].length};
    i = j;
  }
}

void buildShifts(Tables& t, const std::vector<std::string>& literals, const std::vector<uint32_t>& kept) {
  const size_t m = t.minLength;
  t.block = std::min<size_t>(m, 3);
  // About four table entries per block the literals hold keeps shifts long;
  // at most 2^20 (a megabyte).
  const size_t blocks = std::max<size_t>(1, kept.size() * (m - t.block + 1));
  t.hashBits = std::clamp<unsigned>(std::bit_width(blocks * 4), 10, 20);
  const size_t maxShift = std::min<size_t>(m - t.block + 1, 255);
  t.shift.assign(size_t{1} << t.hashBits, static_cast<uint8_t>(maxShift));
  for (const uint32_t id : kept) {
    const auto* p = reinterpret_cast<const uint8_t*>(literals[id].data());
    // Blocks ending at j = B-1 … m-1 of the literal's m-byte prefix: a
    // window whose last block is this one may hold the literal m-1-j bytes on.
    for (size_t j = t.block - 1; j < m; ++j) {
      const uint32_t h = t.blockHash(p + j);
      t.shift[h] = static_cast<uint8_t>(std::min<size_t>(t.shift[h], m - 1 - j));
    }
  }
}

class MultiLiteralScanner final : public WindowScanner {
 public:
  explicit MultiLiteralScanner(const MultiLiteralMatcher& matcher)
      : matcher_(matcher), t_(matcher.tables()), literals_(matcher.literals()) {}

  void scan(ScanWindow& w, MatchCollector& collector) override {
    if (literals_.empty()) return;
    if (matcher_.caseInsensitive()) asciiLowerInPlace(w.data, w.size);
    const size_t m = t_.minLength;
    if (w.size < m) return;
    const size_t to = std::min(w.end, w.size - m + 1);  // starts where the shortest literal fits
    if (w.begin >= to) return;
    if (t_.teddy) {
      scanBuckets(w, to, collector);
    } else {
      scanShifts(w, to, collector);
    }
  }

 private:
  void scanBuckets(const ScanWindow& w, size_t to, MatchCollector& collector) {
    MultiLiteralTeddy::Candidate batch[MultiLiteralTeddy::kBatch];
    size_t next = w.begin;  // the first start a match may have (matches do not overlap)
    // The buckets read `width` bytes from a start: the last starts, where
    // only literals shorter than that fit, are checked one by one.
    const size_t width = t_.teddy->width();
    const size_t bucketsTo = w.size >= width ? std::min(to, w.size - width + 1) : 0;
    int batches = 0;
    while (next < bucketsTo) {
      size_t count = 0;
      const size_t resume = t_.teddy->find(w.data, w.size, next, bucketsTo, batch, count);
      for (size_t i = 0; i < count; ++i) {
        const size_t at = batch[i].at;
        if (at < next) continue;
        const size_t length = check(w, at, t_.lengthsOfBuckets[batch[i].buckets]);
        if (length == 0) continue;
        if (!collector.add(at, length)) return;
        next = at + length;
      }
      next = std::max(next, resume);
      if (++batches == kBatchesPerCheck) {
        batches = 0;
        if (!collector.keepGoing()) return;
      }
    }
    for (size_t at = std::max(next, bucketsTo); at < to;) {
      const size_t length = check(w, at, t_.allLengths);
      if (length != 0 && !collector.add(at, length)) return;
      at += std::max<size_t>(length, 1);
    }
  }

  void scanShifts(const ScanWindow& w, size_t to, MatchCollector& collector) {
    const size_t m = t_.minLength;
    size_t start = w.begin;  // the window's first byte: a possible match start
    int steps = 0;
    while (start < to) {
      if (const uint8_t s = t_.shift[t_.blockHash(w.data + start + m - 1)]; s != 0) {
        start += s;
        continue;
      }
      if (++steps == kStepsPerCheck) {
        steps = 0;
        if (!collector.keepGoing()) return;
      }
      const size_t length = check(w, start, t_.allLengths);
      if (length == 0) {
        ++start;
        continue;
      }
      if (!collector.add(start, length)) return;
      start += length;
    }
  }

  // The length of the literal that matches at `at` (the first listed of
  // those that do), 0 when none does; only keys of the `lengths` given.
  size_t check(const ScanWindow& w, size_t at, uint8_t lengths) const {
    const size_t room = w.size - at;
    const uint8_t* p = w.data + at;
    const uint64_t text = keyAt(p, std::min(room, kKeyBytes));
    uint32_t best = kNone;
    for (uint32_t bits = lengths; bits != 0; bits &= bits - 1) {
      const size_t k = static_cast<size_t>(std::countr_zero(bits)) + 1;
      if (k > room) break;
      const Tables::Slot* slot = t_.find(keepBytes(text, k), k);
      if (slot == nullptr) continue;
      for (uint32_t i = slot->begin; i < slot->end; ++i) {
        const uint32_t id = t_.ids[i];
        if (id >= best) break;
        const std::string& literal = literals_[id];
        const size_t length = literal.size();
        if (length > room) continue;
        if (length > kKeyBytes &&
            std::memcmp(p + kKeyBytes, literal.data() + kKeyBytes, length - kKeyBytes) != 0)
          continue;
        if (matcher_.wholeWord() && !isWholeWord(w, at, length)) continue;
        best = id;
        break;
      }
    }
    return best == kNone ? 0 : literals_[best].size();
  }

  static bool isWholeWord(const ScanWindow& w, size_t at, size_t length) {
    if (at > 0 && isWordByte(w.data[at - 1])) return false;
    return at + length >= w.size || !isWordByte(w.data[at + length]);
  }

  const MultiLiteralMatcher& matcher_;
  const Tables& t_;
  const std::vector<std::string>& literals_;
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
  if (!literals_.empty()) {
    t.minLength = literals_.front().size();
    for (const auto& literal : literals_) t.minLength = std::min(t.minLength, literal.size());
    const std::vector<uint32_t> kept = distinctLiterals(literals_);
    buildCheck(t, literals_, kept);
    std::vector<std::string> distinct;
    for (const uint32_t id : kept) distinct.push_back(literals_[id]);
    t.teddy =
        std::make_unique<MultiLiteralTeddy>(distinct, std::min(maxLength_, MultiLiteralTeddy::kMaxWidth));
    if (t.teddy->passRate() > kMaxBucketPassRate && t.minLength >= 4) {
      t.teddy.reset();
      buildShifts(t, literals_, kept);
    } else {
      std::array<uint8_t, MultiLiteralTeddy::kBuckets> lengthsOfBucket{};
      for (size_t i = 0; i < kept.size(); ++i) {
        const size_t k = std::min(distinct[i].size(), kKeyBytes);
        lengthsOfBucket[t.teddy->bucketOf(i)] |= static_cast<uint8_t>(1u << (k - 1));
      }
      for (size_t mask = 0; mask < 256; ++mask) {
        for (size_t b = 0; b < lengthsOfBucket.size(); ++b)
          if ((mask >> b) & 1) t.lengthsOfBuckets[mask] |= lengthsOfBucket[b];
      }
    }
  }
  tables_ = std::move(tables);
}

std::unique_ptr<WindowScanner> MultiLiteralMatcher::makeScanner() const {
  return std::make_unique<MultiLiteralScanner>(*this);
}

}  // namespace quorin::search
