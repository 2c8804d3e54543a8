#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace quorin::storage {

// The line index's array of line starts: ascending signed 64-bit document
// offsets, one per line. Two stores stand behind this protocol (in memory and
// in a memory-mapped scratch file) so the index never needs to know which one
// it has, and can switch from one to the other while it runs.
//
// Thread-safety: every operation takes the store's own mutex for its whole
// duration, so each call is atomic. That mutex is always the innermost lock
// of its caller: callers may hold their own lock while calling in, never the
// reverse.
//
// Failure: a store that cannot make room for an append or splice leaves its
// entries as they were and returns false; reads out of range return nothing
// (entry) or clamp (entries).
class LineOffsetStorage {
 public:
  virtual ~LineOffsetStorage() = default;

  virtual int64_t count() const = 0;
  // The entry at `index`, or nothing when `index` is outside [0, count).
  virtual std::optional<int64_t> entry(int64_t index) const = 0;
  // Adds `batch` at the end; an empty batch does nothing. Batches are one per
  // scan pass so the lock is taken once per batch, not once per line.
  virtual bool append(std::span<const int64_t> batch) = 0;
  // Replaces the entries [low, high) by `replacement` and adds `byteDelta` to
  // every entry after the range, which is how an edit shifts the lines after
  // it. Both ends are clamped to [0, count]; high below low is taken as low.
  virtual bool splice(int64_t low, int64_t high, std::span<const int64_t> replacement, int64_t byteDelta) = 0;
  // Promotion: makes `target` hold exactly this store's entries (its own are
  // removed first) and leaves this store unchanged, so a failed hand-over
  // costs nothing and the caller swaps stores only on success. The source's
  // lock is held throughout, so no write to the source can slip in between
  // the copy and the caller's swap as long as the caller also serialises its
  // writes (the line index does so under its own lock). The target's lock is
  // taken inside the source's: `target` must be a fresh store that no other
  // thread hands over to this one. Returns false when `target` could not make
  // room; handing a store over to itself does nothing and succeeds.
  virtual bool handOver(LineOffsetStorage& target) = 0;
  // The entries [low, high), both ends clamped to [0, count].
  virtual std::vector<int64_t> entries(int64_t low, int64_t high) const = 0;
  virtual void removeAll() = 0;
};

// [low, high) clamped to [0, count] with high at least low; shared by the stores.
struct ClampedRange {
  int64_t low;
  int64_t high;
};

inline ClampedRange clampRange(int64_t low, int64_t high, int64_t count) {
  const int64_t l = low < 0 ? 0 : (low > count ? count : low);
  const int64_t h = high < l ? l : (high > count ? count : high);
  return {l, h};
}

}  // namespace quorin::storage
