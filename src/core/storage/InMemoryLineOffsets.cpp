#include "storage/InMemoryLineOffsets.h"

namespace quorin::storage {

int64_t InMemoryLineOffsets::count() const {
  base::MutexLock guard(lock_);
  return static_cast<int64_t>(entries_.size());
}

std::optional<int64_t> InMemoryLineOffsets::entry(int64_t index) const {
  base::MutexLock guard(lock_);
  if (index < 0 || index >= static_cast<int64_t>(entries_.size())) return std::nullopt;
  return entries_[static_cast<size_t>(index)];
}

bool InMemoryLineOffsets::append(std::span<const int64_t> batch) {
  base::MutexLock guard(lock_);
  entries_.insert(entries_.end(), batch.begin(), batch.end());
  return true;
}

bool InMemoryLineOffsets::splice(int64_t low, int64_t high, std::span<const int64_t> replacement,
                                 int64_t byteDelta) {
  base::MutexLock guard(lock_);
  const auto [l, h] = clampRange(low, high, static_cast<int64_t>(entries_.size()));
  const auto at = entries_.erase(entries_.begin() + l, entries_.begin() + h);
  const auto tail = entries_.insert(at, replacement.begin(), replacement.end()) +
                    static_cast<std::ptrdiff_t>(replacement.size());
  for (auto it = tail; it != entries_.end(); ++it) *it += byteDelta;
  return true;
}

bool InMemoryLineOffsets::handOver(LineOffsetStorage& target) {
  if (&target == this) return true;
  base::MutexLock guard(lock_);
  target.removeAll();
  return target.append(entries_);
}

std::vector<int64_t> InMemoryLineOffsets::entries(int64_t low, int64_t high) const {
  base::MutexLock guard(lock_);
  const auto [l, h] = clampRange(low, high, static_cast<int64_t>(entries_.size()));
  return {entries_.begin() + l, entries_.begin() + h};
}

void InMemoryLineOffsets::removeAll() {
  base::MutexLock guard(lock_);
  entries_.clear();
}

}  // namespace quorin::storage
