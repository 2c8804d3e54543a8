#include "app/find/MatchSet.h"

#include <algorithm>

namespace quorin::app {
namespace {

bool startsBefore(const storage::ByteRange& range, int64_t offset) { return range.start < offset; }

}  // namespace

MatchSet::MatchSet(std::vector<search::SearchMatch> matches, int64_t version, bool complete)
    : version_(version), complete_(complete) {
  ranges_.reserve(matches.size());
  for (const search::SearchMatch& m : matches)
    ranges_.push_back({m.matchByteStart, m.matchByteStart + m.matchByteLength});
}

std::vector<storage::ByteRange> MatchSet::rangesIn(storage::ByteRange visible) const {
  // Matches never overlap, so ends ascend with starts: the first one that
  // ends inside or after the visible range begins the answer.
  auto it = std::lower_bound(
      ranges_.begin(), ranges_.end(), visible.start,
      [](const storage::ByteRange& r, int64_t at) { return r.end < at || (r.end == at && r.start < at); });
  std::vector<storage::ByteRange> out;
  for (; it != ranges_.end() && it->start < visible.end; ++it) out.push_back(*it);
  return out;
}

std::optional<storage::ByteRange> MatchSet::next(int64_t from, bool wrap, bool* wrapped) const {
  if (wrapped) *wrapped = false;
  auto it = std::lower_bound(ranges_.begin(), ranges_.end(), from, startsBefore);
  if (it != ranges_.end() && it->start == from && it->end == from) ++it;  // the empty match we stand on
  if (it != ranges_.end()) return *it;
  if (!wrap || ranges_.empty()) return std::nullopt;
  if (wrapped) *wrapped = true;
  return ranges_.front();
}

std::optional<storage::ByteRange> MatchSet::previous(int64_t from, bool wrap, bool* wrapped) const {
  if (wrapped) *wrapped = false;
  auto it = std::lower_bound(ranges_.begin(), ranges_.end(), from, startsBefore);
  if (it != ranges_.begin()) return *std::prev(it);
  if (!wrap || ranges_.empty()) return std::nullopt;
  if (wrapped) *wrapped = true;
  return ranges_.back();
}

std::optional<int64_t> MatchSet::indexOf(storage::ByteRange range) const {
  auto it = std::lower_bound(ranges_.begin(), ranges_.end(), range.start, startsBefore);
  if (it == ranges_.end() || *it != range) return std::nullopt;
  return it - ranges_.begin();
}

bool MatchSet::answersNext(int64_t from) const {
  if (stale_ || version_ < 0) return false;
  if (complete_) return true;
  // Over the cap the stored matches are the first ones: exact up to the last.
  return !ranges_.empty() && from < ranges_.back().start;
}

bool MatchSet::answersPrevious(int64_t from) const {
  if (stale_ || version_ < 0) return false;
  if (complete_) return true;
  return !ranges_.empty() && from <= ranges_.back().start && from > ranges_.front().start;
}

void MatchSet::applyEdit(const storage::EditResult& edit) {
  stale_ = true;
  const int64_t start = edit.docByteStart;
  const int64_t removedEnd = start + edit.bytesRemoved;
  // Matches wholly before the changed bytes stay, those after move along,
  // those the edit cut into are gone. Ends ascend like starts (no overlap).
  const auto first = std::partition_point(ranges_.begin(), ranges_.end(),
                                          [&](const storage::ByteRange& r) { return r.end <= start; });
  const auto last = std::partition_point(first, ranges_.end(),
                                         [&](const storage::ByteRange& r) { return r.start < removedEnd; });
  for (auto it = ranges_.erase(first, last); it != ranges_.end(); ++it) {
    it->start += edit.netByteDelta;
    it->end += edit.netByteDelta;
  }
}

}  // namespace quorin::app
