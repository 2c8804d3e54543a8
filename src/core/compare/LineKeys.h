#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace quorin::compare {

// How lines are normalised before they are reduced to keys.
struct LineKeyOptions {
  // Leading spaces and tabs and trailing spaces, tabs, CRs and LFs do not
  // count, and every run of spaces and tabs inside a line counts as one
  // space. A CR inside the line counts as itself.
  bool ignoreWhitespace = false;
  // A–Z count as a–z. ASCII only: other letters, including non-ASCII ones,
  // stay distinct, so the key never depends on a locale.
  bool ignoreCase = false;
};

// FNV-1a, 64 bits.
inline constexpr uint64_t kFnvOffsetBasis = 0xcbf29ce484222325ULL;
inline constexpr uint64_t kFnvPrime = 0x100000001b3ULL;

// The key of one line: two lines are equal for the diff exactly when their
// keys are. Without options CR and LF bytes never take part, wherever they
// stand, so lines that differ only in their line ending are equal; with
// ignoreWhitespace only trailing ones drop out, and a line that is blank
// after trimming keys to kFnvOffsetBasis.
uint64_t lineKey(std::string_view line, LineKeyOptions options);

// Builds one line's key from pieces, for readers that meet a line split
// across buffers: add() every piece in order, then finish() returns the key
// of their concatenation and starts the next line. Not thread-safe.
class LineKeyBuilder {
 public:
  explicit LineKeyBuilder(LineKeyOptions options);
  void add(std::string_view bytes);
  uint64_t finish();

 private:
  template <bool kIgnoreWhitespace, bool kFold>
  void addBytes(std::string_view bytes);

  int mode_;
  uint64_t hash_ = kFnvOffsetBasis;
  uint64_t pendingHash_ = kFnvOffsetBasis;  // hash_ with the pending bytes (ignoreWhitespace)
  bool started_ = false;                    // a byte other than a blank has been seen: later blanks may count
  bool pendingBlank_ = false;               // the pending bytes end in a run of blanks
  bool pending_ = false;                    // blanks or line breaks that count if something follows
};

// The keys of one side's lines, in order.
std::vector<uint64_t> lineKeys(std::span<const std::string_view> lines, LineKeyOptions options);

}  // namespace quorin::compare
