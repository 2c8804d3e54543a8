#include "bookmarks/BookmarkSet.h"

#include <algorithm>

namespace quorin::bookmarks {

int64_t BookmarkSet::baseOf(size_t block) const {
  int64_t sum = blocks_[block].base;
  for (size_t i = block + 1; i > 0; i -= i & (~i + 1)) sum += tree_[i];
  return sum;
}

void BookmarkSet::addDelta(size_t fromBlock, int64_t delta) {
  for (size_t i = fromBlock + 1; i < tree_.size(); i += i & (~i + 1)) tree_[i] += delta;
}

void BookmarkSet::normalize() {
  for (size_t b = 0; b < blocks_.size(); ++b) blocks_[b].base = baseOf(b);
  std::erase_if(blocks_, [](const Block& block) { return block.rel.empty(); });
  tree_.assign(blocks_.size() + 1, 0);
}

size_t BookmarkSet::blockFor(int64_t line) const {
  // The last block whose first bookmark is at or before `line`.
  size_t low = 0, high = blocks_.size();
  while (high - low > 1) {
    const size_t middle = (low + high) / 2;
    if (baseOf(middle) + blocks_[middle].rel.front() <= line) {
      low = middle;
    } else {
      high = middle;
    }
  }
  return low;
}

std::optional<std::pair<size_t, size_t>> BookmarkSet::find(int64_t line) const {
  if (blocks_.empty()) return std::nullopt;
  const size_t b = blockFor(line);
  const auto& rel = blocks_[b].rel;
  const auto it = std::lower_bound(rel.begin(), rel.end(), line - baseOf(b));
  if (it == rel.end() || *it != line - baseOf(b)) return std::nullopt;
  return std::pair{b, static_cast<size_t>(it - rel.begin())};
}

bool BookmarkSet::contains(int64_t line) const { return find(line).has_value(); }

std::optional<std::string> BookmarkSet::note(int64_t line) const {
  const auto at = find(line);
  if (!at) return std::nullopt;
  const auto found = notes_.find(blocks_[at->first].ids[at->second]);
  return found == notes_.end() ? std::string() : found->second;
}

void BookmarkSet::insertAt(size_t b, int64_t line, uint64_t id) {
  Block& block = blocks_[b];
  const int64_t rel = line - baseOf(b);
  const auto at = std::lower_bound(block.rel.begin(), block.rel.end(), rel) - block.rel.begin();
  block.rel.insert(block.rel.begin() + at, rel);
  block.ids.insert(block.ids.begin() + at, id);
  ++size_;
  if (block.rel.size() <= kBlockSize) return;
  // Split in halves; the tree is rebuilt for the new block count.
  Block upper;
  upper.base = block.base;
  const auto half = static_cast<std::ptrdiff_t>(block.rel.size() / 2);
  upper.rel.assign(block.rel.begin() + half, block.rel.end());
  upper.ids.assign(block.ids.begin() + half, block.ids.end());
  block.rel.resize(static_cast<size_t>(half));
  block.ids.resize(static_cast<size_t>(half));
  normalize();  // before the insertion, so that upper's base is folded like block's
  blocks_.insert(blocks_.begin() + static_cast<std::ptrdiff_t>(b) + 1, std::move(upper));
  blocks_[b + 1].base = blocks_[b].base;
  tree_.assign(blocks_.size() + 1, 0);
}

void BookmarkSet::set(int64_t line, std::string note) {
  if (line < 0) return;
  if (const auto at = find(line)) {
    const uint64_t id = blocks_[at->first].ids[at->second];
    if (note.empty()) {
      notes_.erase(id);
    } else {
      notes_[id] = std::move(note);
    }
    return;
  }
  const uint64_t id = nextId_++;
  if (!note.empty()) notes_[id] = std::move(note);
  if (blocks_.empty()) {
    blocks_.push_back({});
    tree_.assign(2, 0);
  }
  insertAt(blockFor(line), line, id);
}

bool BookmarkSet::remove(int64_t line) {
  const auto at = find(line);
  if (!at) return false;
  Block& block = blocks_[at->first];
  notes_.erase(block.ids[at->second]);
  block.rel.erase(block.rel.begin() + static_cast<std::ptrdiff_t>(at->second));
  block.ids.erase(block.ids.begin() + static_cast<std::ptrdiff_t>(at->second));
  --size_;
  if (block.rel.empty()) normalize();
  return true;
}

bool BookmarkSet::toggle(int64_t line) {
  if (remove(line)) return false;
  set(line);
  return contains(line);
}

void BookmarkSet::clear() {
  blocks_.clear();
  tree_.clear();
  notes_.clear();
  size_ = 0;
}

void BookmarkSet::addAll(const std::vector<int64_t>& lines) {
  std::vector<Bookmark> merged = all();
  std::vector<int64_t> added(lines);
  std::sort(added.begin(), added.end());
  added.erase(std::unique(added.begin(), added.end()), added.end());
  std::erase_if(added, [](int64_t line) { return line < 0; });
  // One merge of two sorted lists, then the blocks are cut again.
  std::vector<std::pair<int64_t, std::string>> all;
  all.reserve(merged.size() + added.size());
  size_t i = 0, j = 0;
  while (i < merged.size() || j < added.size()) {
    if (j == added.size() || (i < merged.size() && merged[i].line <= added[j])) {
      if (j < added.size() && merged[i].line == added[j]) ++j;
      all.emplace_back(merged[i].line, std::move(merged[i].note));
      ++i;
    } else {
      all.emplace_back(added[j++], std::string());
    }
  }
  clear();
  for (size_t k = 0; k < all.size(); k += kBlockSize / 2) {
    Block block;
    for (size_t m = k; m < std::min(all.size(), k + kBlockSize / 2); ++m) {
      const uint64_t id = nextId_++;
      block.rel.push_back(all[m].first);
      block.ids.push_back(id);
      if (!all[m].second.empty()) notes_[id] = std::move(all[m].second);
    }
    blocks_.push_back(std::move(block));
  }
  size_ = all.size();
  tree_.assign(blocks_.size() + 1, 0);
}

std::optional<Step> BookmarkSet::next(int64_t line) const {
  if (blocks_.empty()) return std::nullopt;
  for (size_t b = blockFor(line); b < blocks_.size(); ++b) {
    const int64_t base = baseOf(b);
    const auto& rel = blocks_[b].rel;
    const auto it = std::upper_bound(rel.begin(), rel.end(), line - base);
    if (it != rel.end()) return Step{*it + base, false};
  }
  return Step{baseOf(0) + blocks_.front().rel.front(), true};
}

std::optional<Step> BookmarkSet::previous(int64_t line) const {
  if (blocks_.empty()) return std::nullopt;
  for (size_t b = blockFor(line) + 1; b-- > 0;) {
    const int64_t base = baseOf(b);
    const auto& rel = blocks_[b].rel;
    const auto it = std::lower_bound(rel.begin(), rel.end(), line - base);
    if (it != rel.begin()) return Step{*(it - 1) + base, false};
  }
  return Step{baseOf(blocks_.size() - 1) + blocks_.back().rel.back(), true};
}

std::vector<Bookmark> BookmarkSet::all() const {
  std::vector<Bookmark> out;
  out.reserve(size_);
  for (size_t b = 0; b < blocks_.size(); ++b) {
    const int64_t base = baseOf(b);
    for (size_t k = 0; k < blocks_[b].rel.size(); ++k) {
      const auto found = notes_.find(blocks_[b].ids[k]);
      out.push_back({blocks_[b].rel[k] + base, found == notes_.end() ? std::string() : found->second});
    }
  }
  return out;
}

std::vector<int64_t> BookmarkSet::lines() const {
  std::vector<int64_t> out;
  out.reserve(size_);
  for (size_t b = 0; b < blocks_.size(); ++b) {
    const int64_t base = baseOf(b);
    for (const int64_t rel : blocks_[b].rel) out.push_back(rel + base);
  }
  return out;
}

std::vector<Bookmark> BookmarkSet::between(int64_t first, int64_t last) const {
  std::vector<Bookmark> out;
  for (auto step = next(first - 1); step && !step->wrapped && step->line <= last; step = next(step->line)) {
    out.push_back({step->line, note(step->line).value_or("")});
  }
  return out;
}

void BookmarkSet::removeBetween(int64_t first, int64_t last) {
  for (const Bookmark& gone : between(first, last)) remove(gone.line);
}

std::vector<Bookmark> BookmarkSet::applyEdit(int64_t line, int64_t removedBreaks, int64_t insertedBreaks) {
  std::vector<Bookmark> removed;
  if (blocks_.empty()) return removed;
  removedBreaks = std::max<int64_t>(removedBreaks, 0);
  insertedBreaks = std::max<int64_t>(insertedBreaks, 0);
  // The lines the edit merged into `line` lose their bookmarks.
  if (removedBreaks > 0) {
    removed = between(line + 1, line + removedBreaks);
    for (const Bookmark& gone : removed) remove(gone.line);
  }
  const int64_t delta = insertedBreaks - removedBreaks;
  if (delta == 0 || blocks_.empty()) return removed;
  // Everything below the edited range moves: the rest of its block by hand,
  // later blocks through the tree.
  const int64_t last = line + removedBreaks;
  size_t b = blockFor(last);
  const int64_t base = baseOf(b);
  auto& rel = blocks_[b].rel;
  const auto first = std::upper_bound(rel.begin(), rel.end(), last - base);
  if (first == rel.begin() && base + rel.front() > last) {
    addDelta(b, delta);  // the whole block lies below
  } else {
    for (auto it = first; it != rel.end(); ++it) *it += delta;
    addDelta(b + 1, delta);
  }
  return removed;
}

}  // namespace quorin::bookmarks
