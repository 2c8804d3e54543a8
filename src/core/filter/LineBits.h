#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace quorin::filter {

// Plain bit vectors over lines (bit i of word i / 64 is line i), the
// working form of a filter before it becomes a LineVisibilityBitset. Every
// function here costs per word and per run of set bits, not per line.
using LineWords = std::vector<uint64_t>;

inline int64_t wordsFor(int64_t lines) { return (lines + 63) / 64; }
inline bool testBit(const LineWords& words, int64_t line) {
  return (words[static_cast<size_t>(line >> 6)] >> (line & 63)) & 1;
}
inline void setBit(LineWords& words, int64_t line) {
  words[static_cast<size_t>(line >> 6)] |= uint64_t{1} << (line & 63);
}

// Sets lines [from, to) (clamped to the words).
void setRange(LineWords& words, int64_t from, int64_t to);
// Whether any line in [from, to) is set.
bool anyInRange(const LineWords& words, int64_t from, int64_t to);

// Calls visit(from, to) for every maximal run of set lines among the first
// `lines`, in order.
template <typename Visit>
void forEachRun(const LineWords& words, int64_t lines, Visit visit);

// Shows `before` lines above and `after` lines below every shown line.
LineWords withContext(const LineWords& shown, int64_t lines, int64_t before, int64_t after);

// Shows whole messages: a message is a head line (set in `heads`) and the
// lines up to the next head; lines before the first head are one message.
// A message with any shown line is shown whole.
void widenToMessages(LineWords& shown, const LineWords& heads, int64_t lines);

// Clears the bits past `lines` in the last word.
void clearTail(LineWords& words, int64_t lines);

template <typename Visit>
void forEachRun(const LineWords& words, int64_t lines, Visit visit) {
  int64_t line = 0;
  const int64_t count = wordsFor(lines);
  while (line < lines) {
    // Find the next set bit at or after `line`.
    int64_t w = line >> 6;
    uint64_t bits = words[static_cast<size_t>(w)] & (~uint64_t{0} << (line & 63));
    while (bits == 0 && ++w < count) bits = words[static_cast<size_t>(w)];
    if (bits == 0) return;
    const int64_t from = (w << 6) + __builtin_ctzll(bits);
    if (from >= lines) return;
    // Then the next clear bit after it.
    uint64_t clear = ~words[static_cast<size_t>(w)] & (~uint64_t{0} << (from & 63));
    while (clear == 0 && ++w < count) clear = ~words[static_cast<size_t>(w)];
    const int64_t to = clear == 0 ? lines : std::min<int64_t>((w << 6) + __builtin_ctzll(clear), lines);
    visit(from, to);
    line = to;
  }
}

}  // namespace quorin::filter
