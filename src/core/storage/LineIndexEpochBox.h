#pragma once

#include <atomic>
#include <cstdint>

namespace quorin::storage {

// The line index's generation, shared by the index and every snapshot it
// hands out: raising it makes all outstanding snapshots stale at once.
// Thread-safe: snapshots read it on any thread without the index's lock.
class LineIndexEpochBox {
 public:
  int64_t value() const { return value_.load(std::memory_order_acquire); }
  // Returns the new value.
  int64_t raise() { return value_.fetch_add(1, std::memory_order_acq_rel) + 1; }

 private:
  std::atomic<int64_t> value_{0};
};

}  // namespace quorin::storage
