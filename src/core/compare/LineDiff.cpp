#include "compare/LineDiff.h"

#include <algorithm>
#include <limits>
#include <optional>

#include "base/Check.h"

namespace quorin::compare {
namespace {

// Diagonal k = x − y of step d lives at trace[offsetOf(d) + k + d]: step d
// keeps only its 2d + 1 reachable diagonals, so the whole trace of D steps
// holds D² entries rather than D · (2·maxD + 1).
constexpr size_t offsetOf(int64_t d) { return static_cast<size_t>(d) * static_cast<size_t>(d); }

// The greedy choice shared by the forward pass and the trace-back: reach
// diagonal k from k + 1 (a step down, an insertion) when that neighbour got
// further right, else from k − 1 (a step right, a deletion).
bool comesFromAbove(int64_t k, int64_t d, const int32_t* previous) {
  if (k == -d) return true;
  if (k == d) return false;
  // previous is indexed by k' + (d − 1)
  return previous[k - 1 + d - 1] < previous[k + 1 + d - 1];
}

struct Script {
  std::vector<int32_t> deleted;   // left indexes of the middle, ascending
  std::vector<int32_t> inserted;  // right indexes of the middle, ascending
};

// Runs the forward pass; absent when the end is not reached within maxD steps
// (or the caller cancelled).
std::optional<Script> shortestScript(std::span<const uint64_t> a, std::span<const uint64_t> b, int64_t maxD,
                                     const std::atomic<bool>* cancelled) {
  const auto n = static_cast<int32_t>(a.size());
  const auto m = static_cast<int32_t>(b.size());
  std::vector<int32_t> v(static_cast<size_t>(2 * maxD + 1), 0);  // indexed by k + maxD
  // Reserved whole: untouched pages cost nothing, and growing by doubling
  // would briefly hold two copies of a large trace.
  std::vector<int32_t> trace;
  trace.reserve(offsetOf(maxD + 1));
  int64_t endD = -1;
  for (int64_t d = 0; d <= maxD && endD < 0; ++d) {
    if (cancelled && cancelled->load(std::memory_order_relaxed)) return std::nullopt;
    const int32_t* previous = d > 0 ? trace.data() + offsetOf(d - 1) : nullptr;
    for (int64_t k = -d; k <= d; k += 2) {
      int32_t x;
      if (d == 0) {
        x = 0;
      } else if (comesFromAbove(k, d, previous)) {
        x = previous[k + 1 + d - 1];
      } else {
        x = previous[k - 1 + d - 1] + 1;
      }
      auto y = static_cast<int32_t>(x - k);
      while (x < n && y < m && a[static_cast<size_t>(x)] == b[static_cast<size_t>(y)]) {
        ++x;
        ++y;
      }
      v[static_cast<size_t>(k + maxD)] = x;
      if (x >= n && y >= m) endD = d;
    }
    // Keep this step's diagonals for the trace-back. Only the odd or even
    // ones were written this step; the others are never read from it.
    trace.insert(trace.end(), v.begin() + (maxD - d), v.begin() + (maxD + d + 1));
  }
  if (endD < 0) return std::nullopt;

  Script script;
  int64_t k = n - m;
  for (int64_t d = endD; d > 0; --d) {
    const int32_t* previous = trace.data() + offsetOf(d - 1);
    const bool down = comesFromAbove(k, d, previous);
    const int64_t previousK = down ? k + 1 : k - 1;
    const int64_t previousX = previous[previousK + d - 1];
    const int64_t previousY = previousX - previousK;
    if (down) {
      script.inserted.push_back(static_cast<int32_t>(previousY));
    } else {
      script.deleted.push_back(static_cast<int32_t>(previousX));
    }
    k = previousK;
  }
  std::ranges::reverse(script.deleted);
  std::ranges::reverse(script.inserted);
  return script;
}

// Deletions and insertions between the same two unchanged stretches become
// one block; starts are shifted by the common prefix.
std::vector<DiffChange> blocksOf(const Script& script, int64_t prefix) {
  std::vector<DiffChange> changes;
  size_t i = 0;
  size_t j = 0;
  int64_t x = 0;
  int64_t y = 0;
  while (i < script.deleted.size() || j < script.inserted.size()) {
    // Unchanged lines pair off one to one up to the next edit on either side.
    const int64_t toDeletion =
        i < script.deleted.size() ? script.deleted[i] - x : std::numeric_limits<int64_t>::max();
    const int64_t toInsertion =
        j < script.inserted.size() ? script.inserted[j] - y : std::numeric_limits<int64_t>::max();
    const int64_t unchanged = std::min(toDeletion, toInsertion);
    x += unchanged;
    y += unchanged;
    DiffChange change{prefix + x, 0, prefix + y, 0};
    // A script may interleave its steps (delete, insert, delete): take them
    // all until an unchanged line intervenes.
    bool progressed = true;
    while (progressed) {
      progressed = false;
      while (i < script.deleted.size() && script.deleted[i] == x) {
        ++x;
        ++i;
        ++change.leftCount;
        progressed = true;
      }
      while (j < script.inserted.size() && script.inserted[j] == y) {
        ++y;
        ++j;
        ++change.rightCount;
        progressed = true;
      }
    }
    changes.push_back(change);
  }
  return changes;
}

}  // namespace

DiffResult diffLines(std::span<const uint64_t> left, std::span<const uint64_t> right, int budget,
                     const std::atomic<bool>* cancelled) {
  const size_t shorter = std::min(left.size(), right.size());
  size_t prefix = 0;
  while (prefix < shorter && left[prefix] == right[prefix]) ++prefix;
  size_t suffix = 0;
  while (suffix < shorter - prefix && left[left.size() - 1 - suffix] == right[right.size() - 1 - suffix])
    ++suffix;

  const auto a = left.subspan(prefix, left.size() - prefix - suffix);
  const auto b = right.subspan(prefix, right.size() - prefix - suffix);
  const auto start = static_cast<int64_t>(prefix);
  const auto n = static_cast<int64_t>(a.size());
  const auto m = static_cast<int64_t>(b.size());
  DiffResult result;
  if (n == 0 && m == 0) return result;
  if (n == 0 || m == 0) {
    result.changes.push_back({start, n, start, m});
    return result;
  }
  QUORIN_CHECK(n < std::numeric_limits<int32_t>::max() && m < std::numeric_limits<int32_t>::max(),
               "a compared side holds 2^31 lines or more");
  const int64_t maxD = std::min<int64_t>(n + m, std::max(budget, 0));
  const auto script = shortestScript(a, b, maxD, cancelled);
  if (!script) {
    result.changes.push_back({start, n, start, m});
    result.capped = true;
    return result;
  }
  result.changes = blocksOf(*script, start);
  return result;
}

}  // namespace quorin::compare
