#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "search/SearchTypes.h"
#include "storage/ByteRange.h"
#include "storage/EditResult.h"

namespace quorin::app {

// The stored matches of the last whole-document count, as the find bar
// highlights and steps through them. Lookups are binary searches, so a
// repaint asks only for what is visible however many matches there are.
//
// After an edit the matches are shifted along (those the edit touched are
// dropped) so that highlights stay on their text until the recount; the set
// is then stale and no longer trusted for navigation or Replace All.
//
// Not thread-safe: the main thread owns it.
class MatchSet {
 public:
  MatchSet() = default;
  // From a finished count: the stored matches, in document order.
  MatchSet(std::vector<search::SearchMatch> matches, int64_t version, bool complete);

  // The matches intersecting `visible` (an empty match when its offset lies
  // inside), in document order.
  std::vector<storage::ByteRange> rangesIn(storage::ByteRange visible) const;
  // The first match starting at or after `from` (skipping an empty one at
  // `from`), or the last starting before it; wrapping round when asked.
  // Absent when there is none or the set cannot tell (see answersFor).
  std::optional<storage::ByteRange> next(int64_t from, bool wrap, bool* wrapped = nullptr) const;
  std::optional<storage::ByteRange> previous(int64_t from, bool wrap, bool* wrapped = nullptr) const;
  // The index of a match equal to `range`.
  std::optional<int64_t> indexOf(storage::ByteRange range) const;

  // Whether next/previous from `from` can be answered here: the set holds
  // every match of the current text, or (over the cap) the answer lies
  // before the last stored match.
  bool answersNext(int64_t from) const;
  bool answersPrevious(int64_t from) const;

  void applyEdit(const storage::EditResult& edit);
  void markStale() { stale_ = true; }
  bool isStale() const { return stale_; }
  // Every match of the text at version(), none past a cap or a time-out.
  bool isComplete() const { return complete_ && !stale_; }
  int64_t version() const { return version_; }
  size_t size() const { return ranges_.size(); }
  bool empty() const { return ranges_.empty(); }
  const std::vector<storage::ByteRange>& ranges() const { return ranges_; }

 private:
  std::vector<storage::ByteRange> ranges_;  // by start; non-overlapping
  int64_t version_ = -1;
  bool complete_ = false;
  bool stale_ = false;
};

}  // namespace quorin::app
