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

// Keeps the stored matches of a search to the first `cap` in document
// order, whichever order the chunks run in. Each chunk publishes how many
// matches it has found so far; a chunk's room is the cap less what the
// chunks before it have found. That only shrinks as they go on, so a chunk
// may store up to the room it last saw and drop the surplus when it looks
// again; one past the cap's reach stops storing and only counts.
class CapLedger {
 public:
  CapLedger(int64_t cap, size_t chunks) : cap_(cap < 0 ? 0 : cap), found_(chunks, 0) {}
  void publish(size_t chunk, int64_t found);
  // max(cap - matches found so far by the chunks before `chunk`, 0).
  int64_t room(size_t chunk) const;

 private:
  mutable base::Mutex lock_;
  const int64_t cap_;
  std::vector<int64_t> found_ GUARDED_BY(lock_);
};

// The matches of one chunk: all counted, the first ones stored while the
// ledger leaves room. Not thread-safe: one worker owns it.
class MatchSink {
 public:
  MatchSink(CapLedger& ledger, size_t chunk) : ledger_(ledger), chunk_(chunk), room_(ledger.room(chunk)) {}
  MatchSink(const MatchSink&) = delete;
  MatchSink& operator=(const MatchSink&) = delete;

  void add(const SearchMatch& match) {
    ++found_;
    if (static_cast<int64_t>(matches_.size()) < room_) matches_.push_back(match);
  }
  // Tells the ledger what was found so far and drops what no longer fits.
  void publish();

  int64_t found() const { return found_; }
  std::vector<SearchMatch>& matches() { return matches_; }

 private:
  CapLedger& ledger_;
  const size_t chunk_;
  std::vector<SearchMatch> matches_;
  int64_t room_;
  int64_t found_ = 0;
};

// One slot per chunk, filled by whichever worker ran the chunk, read in
// chunk order once the loop is over, so the result is in document order
// whatever order the workers finished in.
class ChunkBuffer {
 public:
  struct Slot {
    std::vector<SearchMatch> matches;
    int64_t found = 0;      // stored or not
    int64_t linesSeen = 0;  // line breaks in the chunk (for chunks past the line index)
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
