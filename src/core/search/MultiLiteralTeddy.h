#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace quorin::search {

// The vector prefilter of MultiLiteralMatcher, after Hyperscan's Teddy: the
// literals are put in 8 buckets by their first `width` bytes (1–3), and a
// text position is a candidate when, for each of those bytes, both its low
// and its high nibble occur at that place in some literal of one bucket.
// Two table look-ups per byte (pshufb) test 16 to 64 positions at once, so
// the cost per byte does not depend on how many literals there are; what
// the literals cost is how often a position passes by chance, which the
// bucket assignment keeps low by grouping literals whose prefixes look
// alike. Candidates still need an exact check.
//
// AVX-512BW (64 positions a step), AVX2 or SSSE3 chosen at run time; a
// byte-table loop elsewhere.
// Immutable after construction; find() may run on any number of threads.
class MultiLiteralTeddy {
 public:
  static constexpr size_t kBuckets = 8;
  static constexpr size_t kMaxWidth = 3;
  // A candidate start and the buckets whose prefix masks it passes.
  struct Candidate {
    size_t at;
    uint8_t buckets;
  };
  // Room find() needs in `out`.
  static constexpr size_t kBatch = 96;

  // `literals` folded as they will be compared, none empty; `width` at
  // most the longest one's length. A literal shorter than `width` lets any
  // byte through its bucket past its end.
  MultiLiteralTeddy(const std::vector<std::string>& literals, size_t width);

  size_t width() const { return width_; }
  // The bucket each literal went to.
  uint8_t bucketOf(size_t literal) const { return bucketOfLiteral_[literal]; }
  // About how often a position of typical text (printable ASCII) passes:
  // near 1 when the literals' prefixes cover most of it.
  double passRate() const { return passRate_; }

  // Appends to `out` (count from 0) the candidates among starts [from, to),
  // ascending, stopping after at least kBatch - 32 of them; returns where to
  // go on (`to` when done). Requires to + width - 1 <= size.
  size_t find(const uint8_t* data, size_t size, size_t from, size_t to, Candidate* out, size_t& count) const;

  // The vector loops read these.
  struct Masks {
    alignas(16) uint8_t low[kMaxWidth][16];
    alignas(16) uint8_t high[kMaxWidth][16];
    uint8_t byte[kMaxWidth][256];  // low & high for every byte value: the scalar loop's table
  };

 private:
  size_t width_;
  double passRate_ = 1;
  Masks masks_{};
  std::vector<uint8_t> bucketOfLiteral_;
  size_t (*find_)(const Masks&, const uint8_t*, size_t, size_t, size_t, Candidate*, size_t&) = nullptr;
};

}  // namespace quorin::search
