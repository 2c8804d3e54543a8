#pragma once

#include <atomic>
#include <cstdint>
#include <span>
#include <vector>

namespace quorin::compare {

// One change block: lines [leftStart, leftStart + leftCount) of the left side
// give way to lines [rightStart, rightStart + rightCount) of the right side.
// A pure insertion has leftCount 0, a pure deletion rightCount 0. Lines are
// 0-based.
struct DiffChange {
  int64_t leftStart = 0;
  int64_t leftCount = 0;
  int64_t rightStart = 0;
  int64_t rightCount = 0;
  bool operator==(const DiffChange&) const = default;
};

struct DiffResult {
  std::vector<DiffChange> changes;  // ascending, non-overlapping
  // The work budget ran out: everything between the common prefix and the
  // common suffix is reported as one block.
  bool capped = false;
};

// The edit-step budget the compare window uses: it bounds time to about
// (N + M) · 2,000 key comparisons and memory to a few megabytes of diagonals,
// whatever the files' sizes.
inline constexpr int kCompareBudget = 2'000;

// Shown when a result is capped.
inline constexpr const char* kCappedNotice =
    "differences exceed the comparison budget — middle shown as one block";

// The shortest edit script between two key sequences, as change blocks.
// The common prefix and suffix are stripped in a linear scan; Myers' greedy
// forward algorithm runs on what remains with at most min(N + M, budget)
// edit steps, keeping one diagonal array per step for the trace-back (about
// 4·D² bytes at D steps). Past the budget the middle becomes one block and
// `capped` is set.
//
// Each side's middle must stay below 2^31 lines. `cancelled`, when given, is
// read once per edit step; once it is set the call returns early with a
// meaningless result that the caller discards. Pure function: any thread.
DiffResult diffLines(std::span<const uint64_t> left, std::span<const uint64_t> right,
                     int budget = kCompareBudget, const std::atomic<bool>* cancelled = nullptr);

}  // namespace quorin::compare
