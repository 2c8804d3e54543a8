#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "base/Mutex.h"
#include "search/SearchTypes.h"

namespace quorin::search {

// The caller's stop switch for one search. Cooperative: workers look at it
// at batched points (every 4,096 matches, every window of text), never in
// the byte loop. Thread-safe.
class SearchCancellation {
 public:
  void cancel() {
    base::MutexLock guard(lock_);
    cancelled_ = true;
  }
  bool isCancelled() const {
    base::MutexLock guard(lock_);
    return cancelled_;
  }

 private:
  mutable base::Mutex lock_;
  bool cancelled_ GUARDED_BY(lock_) = false;
};

// What an asynchronous start returns: cancel() stops the search, whose
// completion still runs with what was found (cancelled set).
struct SearchHandle {
  std::shared_ptr<SearchCancellation> cancellation;
  void cancel() const {
    if (cancellation) cancellation->cancel();
  }
};

// A one-way flag shared by the workers of a search: the first to see the
// deadline pass sets it, every other one stops at its next check.
class AtomicFlag {
 public:
  void set() {
    base::MutexLock guard(lock_);
    value_ = true;
  }
  bool value() const {
    base::MutexLock guard(lock_);
    return value_;
  }

 private:
  mutable base::Mutex lock_;
  bool value_ GUARDED_BY(lock_) = false;
};

// Running totals of one search, added to by the workers once per window.
class ProgressTracker {
 public:
  explicit ProgressTracker(int64_t totalLines) : totalLines_(totalLines) {}
  // Adds and returns the totals after the addition.
  SearchProgress add(int64_t lines, int64_t matches);
  SearchProgress snapshot() const;

 private:
  mutable base::Mutex lock_;
  int64_t totalLines_ GUARDED_BY(lock_);
  int64_t linesScanned_ GUARDED_BY(lock_) = 0;
  int64_t matchesSoFar_ GUARDED_BY(lock_) = 0;
};

// How many matches a search may still store. Sinks take allowances in
// batches of 4,096 while far from the cap and one at a time near it, so the
// lock is rare in the hot loop and the stored count can land on the cap.
class MatchBudget {
 public:
  static constexpr int64_t kBatch = 4096;
  static constexpr int64_t kBatchThreshold = 262'144;  // batches only while more than this remains

  explicit MatchBudget(int64_t cap) : remaining_(cap < 0 ? 0 : cap) {}
  // Hands out an allowance: kBatch, 1, or 0 when nothing remains.
  int64_t take();
  // Gives back what a finished sink did not use.
  void giveBack(int64_t unused);
  void addOverflow(int64_t count);
  int64_t remaining() const;
  int64_t overflow() const;

 private:
  mutable base::Mutex lock_;
  int64_t remaining_ GUARDED_BY(lock_);
  int64_t overflow_ GUARDED_BY(lock_) = 0;
};

// The matches of one chunk. Not thread-safe: one worker owns it.
//
// A sink that took a batch may finish its chunk without using all of it,
// after another sink already found the budget empty; the returned rest would
// then be lost and fewer than the cap stored. So a sink that finds the
// budget empty keeps its next few matches as "reserve" (at most
// `reserveLimit`, which covers every batch that can be outstanding at once),
// and the merge promotes reserve matches, in document order, into whatever
// allowance came back. Everything else past the cap is only counted.
class MatchSink {
 public:
  MatchSink(MatchBudget& budget, int64_t reserveLimit) : budget_(budget), reserveLimit_(reserveLimit) {}
  MatchSink(const MatchSink&) = delete;
  MatchSink& operator=(const MatchSink&) = delete;

  void add(const SearchMatch& match);
  // Returns the unused allowance to the budget and the overflow to its count.
  void finish();

  int64_t found() const { return found_; }
  std::vector<SearchMatch>& matches() { return matches_; }
  // Indices into matches() of the reserve matches, ascending.
  const std::vector<size_t>& reserve() const { return reserve_; }
  int64_t overflow() const { return overflow_; }

 private:
  MatchBudget& budget_;
  const int64_t reserveLimit_;
  std::vector<SearchMatch> matches_;
  std::vector<size_t> reserve_;
  int64_t allowance_ = 0;
  int64_t overflow_ = 0;  // counted, not stored (reserve matches excluded)
  int64_t found_ = 0;
};

// One slot per chunk, filled by whichever worker ran the chunk, read in
// chunk order once the loop is over, so the result is in document order
// whatever order the workers finished in.
class ChunkBuffer {
 public:
  struct Slot {
    std::vector<SearchMatch> matches;
    std::vector<size_t> reserve;  // indices of reserve matches, see MatchSink
    int64_t found = 0;            // stored, reserve and overflow
    int64_t linesSeen = 0;        // line breaks in the chunk (for chunks past the line index)
  };

  explicit ChunkBuffer(size_t chunks) : slots_(chunks) {}
  void put(size_t chunk, Slot slot);
  // Moves the slots out; call once, after every worker is done.
  std::vector<std::optional<Slot>> take();

 private:
  base::Mutex lock_;
  std::vector<std::optional<Slot>> slots_ GUARDED_BY(lock_);
};

}  // namespace quorin::search
