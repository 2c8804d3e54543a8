#pragma once

#include "base/Mutex.h"
#include "storage/LineOffsetStorage.h"

namespace quorin::storage {

// Line starts in an ordinary growable array: the store for every file whose
// line index fits comfortably in memory. Thread-safe (see LineOffsetStorage).
class InMemoryLineOffsets final : public LineOffsetStorage {
 public:
  int64_t count() const override;
  std::optional<int64_t> entry(int64_t index) const override;
  bool append(std::span<const int64_t> batch) override;
  bool splice(int64_t low, int64_t high, std::span<const int64_t> replacement, int64_t byteDelta) override;
  bool handOver(LineOffsetStorage& target) override;
  std::vector<int64_t> entries(int64_t low, int64_t high) const override;
  void removeAll() override;

 private:
  mutable base::Mutex lock_;
  std::vector<int64_t> entries_ GUARDED_BY(lock_);
};

}  // namespace quorin::storage
