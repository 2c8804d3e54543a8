#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

namespace quorin::gen {

// xoshiro256** seeded through splitmix64. Integer arithmetic only, so one
// seed gives the same stream with every compiler and standard library; the
// std:: distributions do not promise that, and generated files must match
// byte for byte between machines.
class Random {
 public:
  explicit Random(uint64_t seed) {
    for (uint64_t& word : state_) word = splitmix64(seed);
  }

  uint64_t next() {
    const uint64_t result = rotl(state_[1] * 5, 7) * 9;
    const uint64_t t = state_[1] << 17;
    state_[2] ^= state_[0];
    state_[3] ^= state_[1];
    state_[1] ^= state_[2];
    state_[0] ^= state_[3];
    state_[2] ^= t;
    state_[3] = rotl(state_[3], 45);
    return result;
  }

  // Uniform in [0, n) for n < 2^32: a multiply of the high bits, no division.
  uint32_t below(uint32_t n) { return static_cast<uint32_t>(((next() >> 32) * n) >> 32); }

  // Uniform in [lo, hi], both inclusive; the span must fit in 32 bits.
  int64_t between(int64_t lo, int64_t hi) { return lo + below(static_cast<uint32_t>(hi - lo + 1)); }

  // True with probability `numerator / denominator`.
  bool chance(uint32_t numerator, uint32_t denominator) { return below(denominator) < numerator; }

  template <typename Container>
  const auto& pick(const Container& items) {
    return items[below(static_cast<uint32_t>(std::size(items)))];
  }

 private:
  static uint64_t splitmix64(uint64_t& x) {
    uint64_t z = (x += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
  }
  static uint64_t rotl(uint64_t x, int k) { return (x << k) | (x >> (64 - k)); }

  uint64_t state_[4];
};

}  // namespace quorin::gen
