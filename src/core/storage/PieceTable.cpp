#include "storage/PieceTable.h"

#include <algorithm>
#include <cstring>

#include "base/Check.h"
#include "dispatch/Clock.h"

namespace quorin::storage {
namespace {

// Builds a new piece list by carrying over ranges of an old one. Carried
// ranges must come in document order, which lets the search for the next
// piece start where the last one ended: a whole bulk edit is one pass.
class ListBuilder {
 public:
  ListBuilder(const PieceList& old, size_t extra) : old_(old) { out_.reserve(old.pieces.size() + extra); }

  // Appends the old document's bytes [from, to), cutting the pieces at both ends.
  void carry(int64_t from, int64_t to) {
    if (from >= to) return;
    auto first = std::upper_bound(old_.prefixLengths.begin() + static_cast<ptrdiff_t>(hint_),
                                  old_.prefixLengths.end(), from);
    for (size_t i = static_cast<size_t>(first - old_.prefixLengths.begin()); i < old_.pieces.size(); ++i) {
      const int64_t start = old_.pieceStart(i), end = old_.prefixLengths[i];
      if (start >= to) break;
      const int64_t a = std::max(from, start), b = std::min(to, end);
      const Piece& p = old_.pieces[i];
      out_.push_back({p.source, p.offset + (a - start), b - a});
      hint_ = i;
      if (end > to) break;
    }
  }

  void add(Piece piece) { out_.push_back(piece); }
  std::vector<Piece> take() { return std::move(out_); }

 private:
  const PieceList& old_;
  std::vector<Piece> out_;
  size_t hint_ = 0;
};

double secondsSince(uint64_t startNs) {
  return static_cast<double>(dispatch::monotonicNanos() - startNs) / 1e9;
}

}  // namespace

PieceTable::PieceTable(std::shared_ptr<const OriginalBuffer> original, std::shared_ptr<AppendBuffer> append)
    : original_(std::move(original)), append_(std::move(append)) {
  std::vector<Piece> pieces;
  if (const int64_t length = original_->documentLength(); length > 0)
    pieces.push_back({PieceSource::original, original_->contentStart(), length});
  list_ = std::make_shared<const PieceList>(PieceList::fromPieces(std::move(pieces)));
}

PieceTableSnapshot PieceTable::snapshot() const {
  base::MutexLock lock(lock_);
  return PieceTableSnapshot(list_, original_, append_, version_);
}

int64_t PieceTable::totalLength() const {
  base::MutexLock lock(lock_);
  return list_->totalLength();
}

int64_t PieceTable::version() const {
  base::MutexLock lock(lock_);
  return version_;
}

size_t PieceTable::pieceCount() const {
  base::MutexLock lock(lock_);
  return list_->pieces.size();
}

void PieceTable::rebuildLocked(std::vector<Piece> pieces) {
  list_ = std::make_shared<const PieceList>(PieceList::fromPieces(std::move(pieces)));
  ++version_;
}

std::vector<int64_t> PieceTable::lineStartsIn(std::string_view bytes, int64_t offset) const {
  const char terminator = static_cast<char>(text::lineTerminator(original_->lineEnding()));
  std::vector<int64_t> starts;
  if (bytes.empty()) return starts;  // memchr must not see the null of an empty view
  for (const char* p = bytes.data();
       (p = static_cast<const char*>(std::memchr(p, terminator, bytes.size() - (p - bytes.data())))) !=
       nullptr;
       ++p)
    starts.push_back(offset + (p - bytes.data()) + 1);
  return starts;
}

EditResult PieceTable::insert(std::string_view bytes, int64_t offset) {
  base::MutexLock lock(lock_);
  const int64_t total = list_->totalLength();
  QUORIN_CHECK(offset >= 0 && offset <= total, "insert offset outside the document");
  if (bytes.empty()) return {offset, 0, 0, 0, offset, version_, {}};

  auto newlines = lineStartsIn(bytes, offset);
  const ByteRange added = append_->append(bytes);
  ListBuilder builder(*list_, 2);
  builder.carry(0, offset);
  builder.add({PieceSource::append, added.start, added.length()});
  builder.carry(offset, total);
  rebuildLocked(builder.take());
  return {offset, 0, added.length(), added.length(), offset + added.length(), version_, std::move(newlines)};
}

EditResult PieceTable::deleteRange(ByteRange range) {
  base::MutexLock lock(lock_);
  QUORIN_CHECK(range.start >= 0 && range.end >= range.start, "reversed or negative delete range");
  const int64_t total = list_->totalLength();
  const int64_t s = std::min(range.start, total), e = std::min(range.end, total);
  if (s == e) return {s, 0, 0, 0, s, version_, {}};

  ListBuilder builder(*list_, 1);  // a delete inside one piece leaves two
  builder.carry(0, s);
  builder.carry(e, total);
  rebuildLocked(builder.take());
  return {s, e - s, 0, -(e - s), s, version_, {}};
}

EditResult PieceTable::replace(ByteRange range, std::string_view bytes) {
  base::MutexLock lock(lock_);
  QUORIN_CHECK(range.start >= 0 && range.end >= range.start, "reversed or negative replace range");
  const int64_t total = list_->totalLength();
  const int64_t s = std::min(range.start, total), e = std::min(range.end, total);
  if (s == e && bytes.empty()) return {s, 0, 0, 0, s, version_, {}};

  auto newlines = lineStartsIn(bytes, s);
  ListBuilder builder(*list_, 2);
  builder.carry(0, s);
  if (!bytes.empty()) {
    const ByteRange added = append_->append(bytes);
    builder.add({PieceSource::append, added.start, added.length()});
  }
  builder.carry(e, total);
  rebuildLocked(builder.take());
  const auto inserted = static_cast<int64_t>(bytes.size());
  return {s, e - s, inserted, inserted - (e - s), s + inserted, version_, std::move(newlines)};
}

PieceTable::BulkEditResult PieceTable::applyBulkEdits(std::span<const BulkEditSite> sites) {
  base::MutexLock lock(lock_);
  BulkEditResult result;
  result.newVersion = version_;
  if (sites.empty()) return result;

  const int64_t total = list_->totalLength();
  ListBuilder builder(*list_, 2 * sites.size());
  result.siteApplied.reserve(sites.size());
  int64_t cursor = 0;
  for (const auto& site : sites) {
    const int64_t s = std::min(site.range.start, total), e = std::min(site.range.end, total);
    const bool apply = s >= cursor && e >= s;
    result.siteApplied.push_back(apply);
    if (!apply) continue;
    builder.carry(cursor, s);
    if (!site.bytes.empty()) {
      const ByteRange added = append_->append(site.bytes);
      builder.add({PieceSource::append, added.start, added.length()});
    }
    cursor = e;
    ++result.sitesApplied;
    result.bytesRemoved += e - s;
    result.bytesInserted += static_cast<int64_t>(site.bytes.size());
  }
  builder.carry(cursor, total);
  rebuildLocked(builder.take());
  result.netByteDelta = result.bytesInserted - result.bytesRemoved;
  result.newVersion = version_;
  return result;
}

PieceTable::CompactionResult PieceTable::compact(double timeBudgetSeconds) {
  const uint64_t startNs = dispatch::monotonicNanos();
  std::shared_ptr<const PieceList> before;
  int64_t versionBefore;
  {
    base::MutexLock lock(lock_);
    before = list_;
    versionBefore = version_;
  }
  const auto count = static_cast<int64_t>(before->pieces.size());
  if (count <= 1) return {count, count, false, secondsSince(startNs)};

  // Merge runs outside the lock; the old list is immutable, so edits go on meanwhile.
  std::vector<Piece> merged;
  merged.reserve(before->pieces.size());
  Piece run = before->pieces.front();
  for (size_t i = 1; i < before->pieces.size(); ++i) {
    // Before every step, so that no budget is overrun by a step (a budget below zero merges nothing).
    if (secondsSince(startNs) > timeBudgetSeconds) return {count, count, false, secondsSince(startNs)};
    const Piece& next = before->pieces[i];
    if (next.source == run.source && run.sourceEnd() == next.offset) {
      run.length += next.length;
    } else {
      merged.push_back(run);
      run = next;
    }
  }
  merged.push_back(run);

  const auto after = static_cast<int64_t>(merged.size());
  base::MutexLock lock(lock_);
  if (version_ != versionBefore || after == count) return {count, count, false, secondsSince(startNs)};
  list_ = std::make_shared<const PieceList>(PieceList::fromPieces(std::move(merged)));
  return {count, after, true, secondsSince(startNs)};
}

}  // namespace quorin::storage
