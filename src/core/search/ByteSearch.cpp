#include "search/ByteSearch.h"

#include <algorithm>
#include <array>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#define QUORIN_AVX2 __attribute__((target("avx2,popcnt")))
#endif

namespace quorin::search {
namespace {

// Rough frequency rank of each byte in logs and prose: higher is more common.
// Only the order matters; it picks the bytes the vector loop looks for.
constexpr std::array<uint8_t, 256> makeByteRank() {
  std::array<uint8_t, 256> rank{};
  for (int b = 0; b < 256; ++b) rank[b] = 10;      // rare: controls, high bytes
  for (int b = 0x21; b < 0x7F; ++b) rank[b] = 60;  // punctuation
  for (int b = 'A'; b <= 'Z'; ++b) rank[b] = 80;
  for (int b = 'a'; b <= 'z'; ++b) rank[b] = 150;
  for (int b = '0'; b <= '9'; ++b) rank[b] = 170;  // timestamps, ids, numbers
  constexpr std::string_view common = "etaoinsrhldcum";
  for (size_t i = 0; i < common.size(); ++i)
    rank[static_cast<uint8_t>(common[i])] = static_cast<uint8_t>(230 - i * 3);
  for (const char c : std::string_view("QXZJKVqxzjkv")) rank[static_cast<uint8_t>(c)] -= 30;
  for (const char c : std::string_view(":-./=,\"[]")) rank[static_cast<uint8_t>(c)] = 160;
  rank[' '] = 255;
  rank['\n'] = 120;
  rank['\t'] = 100;
  return rank;
}
constexpr auto kByteRank = makeByteRank();

size_t scalarFind(const ByteFinder& finder, const uint8_t* haystack, size_t from, size_t length) {
  const size_t n = finder.size();
  if (length < n || from > length - n) return ByteFinder::npos;
  const void* at = memmem(haystack + from, length - from, finder.needle().data(), n);
  return at ? static_cast<size_t>(static_cast<const uint8_t*>(at) - haystack) : ByteFinder::npos;
}

}  // namespace

#if defined(__x86_64__)
// From `p` on; the AVX2 loop finishes its tail here.
size_t findSse2From(const ByteFinder& finder, const uint8_t* haystack, size_t p, size_t length) {
  const size_t n = finder.size();
  const auto* needle = reinterpret_cast<const uint8_t*>(finder.needle().data());
  const size_t r1 = finder.rareOffset1(), r2 = finder.rareOffset2();
  const __m128i b1 = _mm_set1_epi8(static_cast<char>(needle[r1]));
  const __m128i b2 = _mm_set1_epi8(static_cast<char>(needle[r2]));
  // Loads at p + r and need r + 16 bytes: stay where every candidate start fits the needle too.
  while (length >= n + 15 && p <= length - n - 15) {
    const __m128i v1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(haystack + p + r1));
    const __m128i v2 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(haystack + p + r2));
    auto mask = static_cast<uint32_t>(
        _mm_movemask_epi8(_mm_and_si128(_mm_cmpeq_epi8(v1, b1), _mm_cmpeq_epi8(v2, b2))));
    while (mask != 0) {
      const size_t at = p + static_cast<size_t>(__builtin_ctz(mask));
      if (std::memcmp(haystack + at, needle, n) == 0) return at;
      mask &= mask - 1;
    }
    p += 16;
  }
  return scalarFind(finder, haystack, p, length);
}

size_t findSse2(const ByteFinder& finder, const uint8_t* haystack, size_t length) {
  return findSse2From(finder, haystack, 0, length);
}

QUORIN_AVX2 size_t findAvx2(const ByteFinder& finder, const uint8_t* haystack, size_t length) {
  const size_t n = finder.size();
  const auto* needle = reinterpret_cast<const uint8_t*>(finder.needle().data());
  const size_t r1 = finder.rareOffset1(), r2 = finder.rareOffset2();
  const __m256i b1 = _mm256_set1_epi8(static_cast<char>(needle[r1]));
  const __m256i b2 = _mm256_set1_epi8(static_cast<char>(needle[r2]));
  size_t p = 0;
  while (length >= n + 31 && p <= length - n - 31) {
    const __m256i v1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(haystack + p + r1));
    const __m256i v2 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(haystack + p + r2));
    auto mask = static_cast<uint32_t>(
        _mm256_movemask_epi8(_mm256_and_si256(_mm256_cmpeq_epi8(v1, b1), _mm256_cmpeq_epi8(v2, b2))));
    while (mask != 0) {
      const size_t at = p + static_cast<size_t>(__builtin_ctz(mask));
      if (std::memcmp(haystack + at, needle, n) == 0) return at;
      mask &= mask - 1;
    }
    p += 32;
  }
  return findSse2From(finder, haystack, p, length);
}
#endif

ByteFinder::ByteFinder(std::string needle) : needle_(std::move(needle)) {
  const size_t n = needle_.size();
  if (n >= 2) {
    auto rankAt = [&](size_t i) { return kByteRank[static_cast<uint8_t>(needle_[i])]; };
    rare1_ = 0;
    for (size_t i = 1; i < n; ++i)
      if (rankAt(i) < rankAt(rare1_)) rare1_ = i;
    // The second byte must differ from the first, or the two tests would be one.
    rare2_ = rare1_ == 0 ? 1 : 0;
    for (size_t i = 0; i < n; ++i) {
      if (i == rare1_ || needle_[i] == needle_[rare1_]) continue;
      if (needle_[rare2_] == needle_[rare1_] || rankAt(i) < rankAt(rare2_)) rare2_ = i;
    }
  }
#if defined(__x86_64__)
  __builtin_cpu_init();
  if (n >= 2) vectorFind_ = __builtin_cpu_supports("avx2") ? &findAvx2 : &findSse2;
#endif
}

size_t ByteFinder::find(const uint8_t* haystack, size_t length) const {
  const size_t n = needle_.size();
  if (n == 0) return 0;
  if (length < n) return npos;
  if (n == 1) {
    const void* at = std::memchr(haystack, static_cast<uint8_t>(needle_[0]), length);
    return at ? static_cast<size_t>(static_cast<const uint8_t*>(at) - haystack) : npos;
  }
  if (vectorFind_ != nullptr) return vectorFind_(*this, haystack, length);
  return scalarFind(*this, haystack, 0, length);
}

#if defined(__x86_64__)
QUORIN_AVX2 static size_t countByteAvx2(const uint8_t* data, size_t length, uint8_t byte) {
  const __m256i target = _mm256_set1_epi8(static_cast<char>(byte));
  size_t count = 0;
  size_t i = 0;
  for (; i + 32 <= length; i += 32) {
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data + i));
    count += static_cast<size_t>(
        __builtin_popcount(static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(v, target)))));
  }
  for (; i < length; ++i) count += data[i] == byte;
  return count;
}

QUORIN_AVX2 static void lowerAvx2(uint8_t* data, size_t length) {
  const __m256i beforeA = _mm256_set1_epi8('A' - 1);
  const __m256i afterZ = _mm256_set1_epi8('Z' + 1);
  const __m256i caseBit = _mm256_set1_epi8(0x20);
  size_t i = 0;
  for (; i + 32 <= length; i += 32) {
    auto* at = reinterpret_cast<__m256i*>(data + i);
    const __m256i v = _mm256_loadu_si256(at);
    // Signed compares: bytes of 0x80 and above are negative and never letters.
    const __m256i upper = _mm256_and_si256(_mm256_cmpgt_epi8(v, beforeA), _mm256_cmpgt_epi8(afterZ, v));
    _mm256_storeu_si256(at, _mm256_or_si256(v, _mm256_and_si256(upper, caseBit)));
  }
  for (; i < length; ++i)
    if (data[i] >= 'A' && data[i] <= 'Z') data[i] |= 0x20;
}

QUORIN_AVX2 static size_t asciiPrefixAvx2(const uint8_t* data, size_t length) {
  size_t i = 0;
  for (; i + 32 <= length; i += 32) {
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(data + i));
    const auto high = static_cast<uint32_t>(_mm256_movemask_epi8(v));
    if (high != 0) return i + static_cast<size_t>(__builtin_ctz(high));
  }
  while (i < length && data[i] < 0x80) ++i;
  return i;
}

static bool hasAvx2() {
  static const bool has = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
  }();
  return has;
}
#endif

size_t countByte(const uint8_t* data, size_t length, uint8_t byte) {
#if defined(__x86_64__)
  if (hasAvx2()) return countByteAvx2(data, length, byte);
#endif
  size_t count = 0;
  for (size_t i = 0; i < length; ++i) count += data[i] == byte;
  return count;
}

size_t asciiPrefixLength(const uint8_t* data, size_t length) {
#if defined(__x86_64__)
  if (hasAvx2()) return asciiPrefixAvx2(data, length);
#endif
  size_t i = 0;
  while (i < length && data[i] < 0x80) ++i;
  return i;
}

void asciiLowerInPlace(uint8_t* data, size_t length) {
#if defined(__x86_64__)
  if (hasAvx2()) return lowerAvx2(data, length);
#endif
  for (size_t i = 0; i < length; ++i)
    if (data[i] >= 'A' && data[i] <= 'Z') data[i] |= 0x20;
}

std::string asciiLower(std::string_view text) {
  std::string out(text);
  asciiLowerInPlace(reinterpret_cast<uint8_t*>(out.data()), out.size());
  return out;
}

}  // namespace quorin::search
