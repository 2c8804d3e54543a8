#include "filter/LineBits.h"

#include <algorithm>

namespace quorin::filter {

void setRange(LineWords& words, int64_t from, int64_t to) {
  from = std::max<int64_t>(from, 0);
  to = std::min<int64_t>(to, static_cast<int64_t>(words.size()) * 64);
  if (from >= to) return;
  const int64_t first = from >> 6, last = (to - 1) >> 6;
  const uint64_t head = ~uint64_t{0} << (from & 63);
  const uint64_t tail = ~uint64_t{0} >> (63 - ((to - 1) & 63));
  if (first == last) {
    words[static_cast<size_t>(first)] |= head & tail;
    return;
  }
  words[static_cast<size_t>(first)] |= head;
  std::fill(words.begin() + first + 1, words.begin() + last, ~uint64_t{0});
  words[static_cast<size_t>(last)] |= tail;
}

bool anyInRange(const LineWords& words, int64_t from, int64_t to) {
  from = std::max<int64_t>(from, 0);
  to = std::min<int64_t>(to, static_cast<int64_t>(words.size()) * 64);
  if (from >= to) return false;
  const int64_t first = from >> 6, last = (to - 1) >> 6;
  const uint64_t head = ~uint64_t{0} << (from & 63);
  const uint64_t tail = ~uint64_t{0} >> (63 - ((to - 1) & 63));
  if (first == last) return (words[static_cast<size_t>(first)] & head & tail) != 0;
  if (words[static_cast<size_t>(first)] & head) return true;
  for (int64_t w = first + 1; w < last; ++w) {
    if (words[static_cast<size_t>(w)] != 0) return true;
  }
  return (words[static_cast<size_t>(last)] & tail) != 0;
}

void clearTail(LineWords& words, int64_t lines) {
  if (lines & 63 && static_cast<int64_t>(words.size()) > (lines >> 6)) {
    words[static_cast<size_t>(lines >> 6)] &= ~(~uint64_t{0} << (lines & 63));
  }
}

LineWords withContext(const LineWords& shown, int64_t lines, int64_t before, int64_t after) {
  if (before == 0 && after == 0) return shown;
  LineWords out(shown.size(), 0);
  forEachRun(shown, lines, [&](int64_t from, int64_t to) { setRange(out, from - before, to + after); });
  clearTail(out, lines);
  return out;
}

void widenToMessages(LineWords& shown, const LineWords& heads, int64_t lines) {
  // Continuation lines are the runs of clear bits in `heads`; each run and
  // the head just above it (if any) form one message.
  LineWords continuations(heads.size());
  for (size_t w = 0; w < heads.size(); ++w) continuations[w] = ~heads[w];
  clearTail(continuations, lines);
  forEachRun(continuations, lines, [&](int64_t from, int64_t to) {
    const int64_t head = from > 0 ? from - 1 : 0;
    if (anyInRange(shown, head, to)) setRange(shown, head, to);
  });
}

}  // namespace quorin::filter
