#include "search/SearchRuntime.h"

#include <algorithm>

namespace quorin::search {

SearchProgress ProgressTracker::add(int64_t lines, int64_t matches) {
  base::MutexLock guard(lock_);
  linesScanned_ += lines;
  matchesSoFar_ += matches;
  return {linesScanned_, std::max(totalLines_, linesScanned_), matchesSoFar_};
}

SearchProgress ProgressTracker::snapshot() const {
  base::MutexLock guard(lock_);
  return {linesScanned_, std::max(totalLines_, linesScanned_), matchesSoFar_};
}

int64_t MatchBudget::take() {
  base::MutexLock guard(lock_);
  const int64_t grant = remaining_ > kBatchThreshold ? kBatch : std::min<int64_t>(remaining_, 1);
  remaining_ -= grant;
  return grant;
}

void MatchBudget::giveBack(int64_t unused) {
  base::MutexLock guard(lock_);
  remaining_ += unused;
}

void MatchBudget::addOverflow(int64_t count) {
  base::MutexLock guard(lock_);
  overflow_ += count;
}

int64_t MatchBudget::remaining() const {
  base::MutexLock guard(lock_);
  return remaining_;
}

int64_t MatchBudget::overflow() const {
  base::MutexLock guard(lock_);
  return overflow_;
}

void MatchSink::add(const SearchMatch& match) {
  ++found_;
  if (allowance_ == 0) allowance_ = budget_.take();
  if (allowance_ > 0) {
    --allowance_;
    matches_.push_back(match);
  } else if (static_cast<int64_t>(reserve_.size()) < reserveLimit_) {
    reserve_.push_back(matches_.size());
    matches_.push_back(match);
  } else {
    ++overflow_;
  }
}

void MatchSink::finish() {
  if (allowance_ > 0) budget_.giveBack(allowance_);
  allowance_ = 0;
  if (overflow_ > 0) budget_.addOverflow(overflow_);
}

void ChunkBuffer::put(size_t chunk, Slot slot) {
  base::MutexLock guard(lock_);
  if (chunk < slots_.size()) slots_[chunk] = std::move(slot);
}

std::vector<std::optional<ChunkBuffer::Slot>> ChunkBuffer::take() {
  base::MutexLock guard(lock_);
  return std::move(slots_);
}

}  // namespace quorin::search
