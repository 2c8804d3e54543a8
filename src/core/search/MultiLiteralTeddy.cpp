#include "search/MultiLiteralTeddy.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <limits>

#if defined(__x86_64__)
#include <immintrin.h>
#define QUORIN_SSSE3 __attribute__((target("ssse3")))
#define QUORIN_AVX2 __attribute__((target("avx2")))
#define QUORIN_AVX512 __attribute__((target("avx512f,avx512bw")))
#endif

namespace quorin::search {
namespace {

using Masks = MultiLiteralTeddy::Masks;
using Candidate = MultiLiteralTeddy::Candidate;
constexpr size_t kMaxWidth = MultiLiteralTeddy::kMaxWidth;
constexpr size_t kFull = MultiLiteralTeddy::kBatch - 32;  // a 32-byte step adds at most 32
// Distinct prefixes are first cut into this many groups of neighbours in
// sorted order, then merged pairwise down to the buckets.
constexpr size_t kMaxGroups = 32;

// Bytes of typical text (printable ASCII and tab), by high nibble: the low
// nibbles that make one. A bucket's pass rate is counted over these.
constexpr std::array<uint16_t, 16> kTypicalLow = [] {
  std::array<uint16_t, 16> low{};
  for (int c = 0x20; c < 0x7F; ++c) low[c >> 4] |= uint16_t(1u << (c & 15));
  low[0] |= uint16_t(1u << '\t');
  return low;
}();
constexpr double kTypicalBytes = 96;

// Literals sharing a bucket: which nibbles each prefix byte may have.
struct Group {
  std::array<uint16_t, kMaxWidth> low{}, high{};

  // Past a short literal's end any byte may follow.
  void add(const std::string& prefix) {
    for (size_t j = 0; j < kMaxWidth; ++j) {
      if (j >= prefix.size()) {
        low[j] = high[j] = 0xffff;
        continue;
      }
      const auto b = static_cast<uint8_t>(prefix[j]);
      low[j] |= uint16_t(1u << (b & 15));
      high[j] |= uint16_t(1u << (b >> 4));
    }
  }
  Group merged(const Group& other) const {
    Group g;
    for (size_t j = 0; j < kMaxWidth; ++j) {
      g.low[j] = low[j] | other.low[j];
      g.high[j] = high[j] | other.high[j];
    }
    return g;
  }
  double passRate(size_t width) const {
    double rate = 1;
    for (size_t j = 0; j < width; ++j) {
      int count = 0;
      for (int h = 0; h < 16; ++h)
        if ((high[j] >> h) & 1) count += std::popcount(unsigned(low[j] & kTypicalLow[h]));
      rate *= count / kTypicalBytes;
    }
    return rate;
  }
};

template <size_t W>
size_t findScalar(const Masks& m, const uint8_t* data, size_t, size_t from, size_t to, Candidate* out,
                  size_t& count) {
  for (size_t p = from; p < to; ++p) {
    uint8_t b = m.byte[0][data[p]];
    if constexpr (W > 1) b &= m.byte[1][data[p + 1]];
    if constexpr (W > 2) b &= m.byte[2][data[p + 2]];
    if (b == 0) continue;
    out[count++] = {p, b};
    if (count >= kFull) return p + 1;
  }
  return to;
}

#if defined(__x86_64__)
template <size_t W>
QUORIN_SSSE3 size_t findSsse3(const Masks& m, const uint8_t* data, size_t size, size_t from, size_t to,
                              Candidate* out, size_t& count) {
  const __m128i nibble = _mm_set1_epi8(0x0f);
  __m128i low[W], high[W];
  for (size_t j = 0; j < W; ++j) {
    low[j] = _mm_load_si128(reinterpret_cast<const __m128i*>(m.low[j]));
    high[j] = _mm_load_si128(reinterpret_cast<const __m128i*>(m.high[j]));
  }
  size_t p = from;
  // Each step reads bytes [p, p + 16 + W - 1).
  for (; p < to && p + 16 + W - 1 <= size && count < kFull; p += 16) {
    __m128i hit = _mm_set1_epi8(-1);
    for (size_t j = 0; j < W; ++j) {
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + p + j));
      const __m128i l = _mm_shuffle_epi8(low[j], _mm_and_si128(v, nibble));
      const __m128i h = _mm_shuffle_epi8(high[j], _mm_and_si128(_mm_srli_epi16(v, 4), nibble));
      hit = _mm_and_si128(hit, _mm_and_si128(l, h));
    }
    uint32_t bits =
        ~static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(hit, _mm_setzero_si128()))) & 0xffff;
    if (to - p < 16) bits &= (1u << (to - p)) - 1;
    if (bits == 0) continue;
    alignas(16) uint8_t buckets[16];
    _mm_store_si128(reinterpret_cast<__m128i*>(buckets), hit);
    for (; bits != 0; bits &= bits - 1) {
      const auto i = static_cast<size_t>(std::countr_zero(bits));
      out[count++] = {p + i, buckets[i]};
    }
  }
  if (count >= kFull || p >= to) return std::min(p, to);
  return findScalar<W>(m, data, size, p, to, out, count);
}

template <size_t W>
QUORIN_AVX2 size_t findAvx2(const Masks& m, const uint8_t* data, size_t size, size_t from, size_t to,
                            Candidate* out, size_t& count) {
  const __m256i nibble = _mm256_set1_epi8(0x0f);
  __m256i low[W], high[W];
  for (size_t j = 0; j < W; ++j) {  // vpshufb looks up within each 128-bit lane: the table in both
    low[j] = _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(m.low[j])));
    high[j] = _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(m.high[j])));
  }
  size_t p = from;
  for (; p < to && p + 32 + W - 1 <= size && count < kFull; p += 32) {
    __m256i hit = _mm256_set1_epi8(-1);
    for (size_t j = 0; j < W; ++j) {
      const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data + p + j));
      const __m256i l = _mm256_shuffle_epi8(low[j], _mm256_and_si256(v, nibble));
      const __m256i h = _mm256_shuffle_epi8(high[j], _mm256_and_si256(_mm256_srli_epi16(v, 4), nibble));
      hit = _mm256_and_si256(hit, _mm256_and_si256(l, h));
    }
    if (_mm256_testz_si256(hit, hit)) continue;  // the usual case: no candidate in 32 bytes
    uint32_t bits =
        ~static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(hit, _mm256_setzero_si256())));
    if (to - p < 32) bits &= (1u << (to - p)) - 1;
    if (bits == 0) continue;
    alignas(32) uint8_t buckets[32];
    _mm256_store_si256(reinterpret_cast<__m256i*>(buckets), hit);
    for (; bits != 0; bits &= bits - 1) {
      const auto i = static_cast<size_t>(std::countr_zero(bits));
      out[count++] = {p + i, buckets[i]};
    }
  }
  if (count >= kFull || p >= to) return std::min(p, to);
  return findSsse3<W>(m, data, size, p, to, out, count);
}
template <size_t W>
QUORIN_AVX512 size_t findAvx512(const Masks& m, const uint8_t* data, size_t size, size_t from, size_t to,
                                Candidate* out, size_t& count) {
  const __m512i nibble = _mm512_set1_epi8(0x0f);
  __m512i low[W], high[W];
  // The tables in each 128-bit lane, as vpshufb looks up within lanes.
  alignas(64) uint8_t lanes[2][64];
  for (size_t j = 0; j < W; ++j) {
    for (size_t lane = 0; lane < 4; ++lane) {
      std::memcpy(lanes[0] + 16 * lane, m.low[j], 16);
      std::memcpy(lanes[1] + 16 * lane, m.high[j], 16);
    }
    low[j] = _mm512_load_si512(lanes[0]);
    high[j] = _mm512_load_si512(lanes[1]);
  }
  size_t p = from;
  // 64 positions per step; a step adds at most 64 candidates, so stop 32 earlier than the others.
  for (; p < to && p + 64 + W - 1 <= size && count + 32 < kFull; p += 64) {
    __m512i hit = _mm512_set1_epi8(-1);
    for (size_t j = 0; j < W; ++j) {
      const __m512i v = _mm512_loadu_si512(data + p + j);
      const __m512i l = _mm512_shuffle_epi8(low[j], _mm512_and_si512(v, nibble));
      const __m512i h = _mm512_shuffle_epi8(high[j], _mm512_and_si512(_mm512_srli_epi16(v, 4), nibble));
      hit = _mm512_and_si512(hit, _mm512_and_si512(l, h));
    }
    uint64_t bits = _mm512_test_epi8_mask(hit, hit);
    if (bits == 0) continue;
    if (to - p < 64) bits &= (uint64_t{1} << (to - p)) - 1;
    alignas(64) uint8_t buckets[64];
    _mm512_store_si512(buckets, hit);
    for (; bits != 0; bits &= bits - 1) {
      const auto i = static_cast<size_t>(std::countr_zero(bits));
      out[count++] = {p + i, buckets[i]};
    }
  }
  if (count + 32 >= kFull || p >= to) return std::min(p, to);
  return findAvx2<W>(m, data, size, p, to, out, count);
}
#endif

template <template <size_t> class Pick>
auto byWidth(size_t width) {
  return width == 1 ? Pick<1>::fn : width == 2 ? Pick<2>::fn : Pick<3>::fn;
}
template <size_t W>
struct Scalar {
  static constexpr auto fn = &findScalar<W>;
};
#if defined(__x86_64__)
template <size_t W>
struct Ssse3 {
  static constexpr auto fn = &findSsse3<W>;
};
template <size_t W>
struct Avx2 {
  static constexpr auto fn = &findAvx2<W>;
};
template <size_t W>
struct Avx512 {
  static constexpr auto fn = &findAvx512<W>;
};
#endif

// Buckets for the distinct prefixes: neighbours in sorted order grouped
// first, then the two groups whose union passes least often merged, until
// there are kBuckets. Returns each prefix's bucket.
std::vector<uint8_t> assignBuckets(const std::vector<std::string>& prefixes, size_t width,
                                   std::vector<Group>& groups) {
  const size_t n = prefixes.size();
  const size_t initial = std::min(n, kMaxGroups);
  groups.assign(initial, Group{});
  std::vector<size_t> groupOf(n);
  for (size_t i = 0; i < n; ++i) {
    groupOf[i] = i * initial / n;
    groups[groupOf[i]].add(prefixes[i]);
  }
  std::vector<size_t> parent(initial);
  for (size_t g = 0; g < initial; ++g) parent[g] = g;
  std::vector<size_t> alive = parent;
  std::vector<double> rate(initial);
  for (size_t g = 0; g < initial; ++g) rate[g] = groups[g].passRate(width);
  while (alive.size() > MultiLiteralTeddy::kBuckets) {
    double best = std::numeric_limits<double>::max();
    size_t a = 0, b = 1;
    for (size_t x = 0; x < alive.size(); ++x) {
      for (size_t y = x + 1; y < alive.size(); ++y) {
        const double cost =
            groups[alive[x]].merged(groups[alive[y]]).passRate(width) - rate[alive[x]] - rate[alive[y]];
        if (cost < best) best = cost, a = x, b = y;
      }
    }
    groups[alive[a]] = groups[alive[a]].merged(groups[alive[b]]);
    rate[alive[a]] = groups[alive[a]].passRate(width);
    parent[alive[b]] = alive[a];
    alive.erase(alive.begin() + static_cast<std::ptrdiff_t>(b));
  }
  const auto root = [&](size_t g) {
    while (parent[g] != g) g = parent[g];
    return g;
  };
  std::vector<uint8_t> bucketOf(n);
  for (size_t i = 0; i < n; ++i) {
    const size_t r = root(groupOf[i]);
    bucketOf[i] = static_cast<uint8_t>(std::find(alive.begin(), alive.end(), r) - alive.begin());
  }
  std::vector<Group> kept;
  for (size_t g : alive) kept.push_back(groups[g]);
  groups = std::move(kept);
  return bucketOf;
}

}  // namespace

MultiLiteralTeddy::MultiLiteralTeddy(const std::vector<std::string>& literals, size_t width)
    : width_(std::clamp<size_t>(width, 1, kMaxWidth)) {
  std::vector<std::string> prefixes;
  prefixes.reserve(literals.size());
  for (const auto& literal : literals) prefixes.push_back(literal.substr(0, width_));
  std::sort(prefixes.begin(), prefixes.end());
  prefixes.erase(std::unique(prefixes.begin(), prefixes.end()), prefixes.end());
  std::vector<Group> groups;
  const std::vector<uint8_t> bucketOfPrefix = assignBuckets(prefixes, width_, groups);

  bucketOfLiteral_.reserve(literals.size());
  for (const auto& literal : literals) {
    const auto at = std::lower_bound(prefixes.begin(), prefixes.end(), literal.substr(0, width_));
    bucketOfLiteral_.push_back(bucketOfPrefix[static_cast<size_t>(at - prefixes.begin())]);
  }
  passRate_ = 0;
  for (size_t b = 0; b < groups.size(); ++b) {
    passRate_ += groups[b].passRate(width_);
    for (size_t j = 0; j < width_; ++j) {
      for (int n = 0; n < 16; ++n) {
        if ((groups[b].low[j] >> n) & 1) masks_.low[j][n] |= uint8_t(1u << b);
        if ((groups[b].high[j] >> n) & 1) masks_.high[j][n] |= uint8_t(1u << b);
      }
    }
  }
  passRate_ = std::min(passRate_, 1.0);
  for (size_t j = 0; j < width_; ++j)
    for (int c = 0; c < 256; ++c) masks_.byte[j][c] = masks_.low[j][c & 15] & masks_.high[j][c >> 4];

  find_ = byWidth<Scalar>(width_);
#if defined(__x86_64__)
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx512bw")) {
    find_ = byWidth<Avx512>(width_);
  } else if (__builtin_cpu_supports("avx2")) {
    find_ = byWidth<Avx2>(width_);
  } else if (__builtin_cpu_supports("ssse3")) {
    find_ = byWidth<Ssse3>(width_);
  }
#endif
}

size_t MultiLiteralTeddy::find(const uint8_t* data, size_t size, size_t from, size_t to, Candidate* out,
                               size_t& count) const {
  count = 0;
  return find_(masks_, data, size, from, to, out, count);
}

}  // namespace quorin::search
