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

void CapLedger::publish(size_t chunk, int64_t found) {
  base::MutexLock guard(lock_);
  if (chunk < found_.size()) found_[chunk] = found;
}

int64_t CapLedger::room(size_t chunk) const {
  base::MutexLock guard(lock_);
  int64_t room = cap_;
  for (size_t i = 0; i < chunk && i < found_.size() && room > 0; ++i) room -= found_[i];
  return std::max<int64_t>(room, 0);
}

void MatchSink::publish() {
  ledger_.publish(chunk_, found_);
  room_ = ledger_.room(chunk_);
  if (room_ == 0) {
    std::vector<SearchMatch>().swap(matches_);  // past the cap's reach: give the memory back
  } else if (static_cast<int64_t>(matches_.size()) > room_) {
    matches_.resize(static_cast<size_t>(room_));
  }
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
