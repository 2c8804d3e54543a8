#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace quorin::bookmarks {

// A bookmark as the set hands it out.
struct Bookmark {
  int64_t line = 0;  // 0-based document line
  std::string note;  // empty when none
  bool operator==(const Bookmark&) const = default;
};

// Where next()/previous() went, and whether they wrapped past the end.
struct Step {
  int64_t line = 0;
  bool wrapped = false;
};

// A document's bookmarks: at most one per line, each with an optional note,
// kept in line order through edits.
//
// Lines are kept in blocks of at most kBlockSize, relative to their block's
// base; the bases move through a Fenwick tree of deltas, so an edit that
// moves every bookmark below it costs O(log blocks) plus the edited block,
// not O(n) per keystroke with tens of thousands of bookmarks. Lookups are
// O(log n). Notes are kept by a stable id, so moving never copies them.
//
// Thread-safety: none; one thread (the main one). Failure: nothing fails;
// negative lines are ignored.
class BookmarkSet {
 public:
  static constexpr size_t kBlockSize = 512;

  bool contains(int64_t line) const;
  std::optional<std::string> note(int64_t line) const;  // none when not bookmarked
  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  // Adds the bookmark (with `note`) or replaces its note.
  void set(int64_t line, std::string note = {});
  bool remove(int64_t line);
  // Adds or removes the caret line's bookmark; true when it is now bookmarked.
  bool toggle(int64_t line);
  void clear();
  // Adds bookmarks on every line of `lines` (ascending or not; duplicates
  // and lines already bookmarked are skipped), in one pass.
  void addAll(const std::vector<int64_t>& lines);

  // The first bookmark after `line` (before it, for previous), wrapping
  // around the ends; none when there are no bookmarks.
  std::optional<Step> next(int64_t line) const;
  std::optional<Step> previous(int64_t line) const;

  // The bookmarks on lines first…last (inclusive), in order; and removing them.
  std::vector<Bookmark> between(int64_t first, int64_t last) const;
  void removeBetween(int64_t first, int64_t last);

  // Every bookmark in line order, and the lines alone (for a filter rule).
  std::vector<Bookmark> all() const;
  std::vector<int64_t> lines() const;

  // An edit at `line` that removed `removedBreaks` line breaks after it and
  // inserted `insertedBreaks`: bookmarks on the lines it merged away go (and
  // are returned, with their notes, for undo); the edited line keeps its
  // own; the lines below move by insertedBreaks − removedBreaks.
  std::vector<Bookmark> applyEdit(int64_t line, int64_t removedBreaks, int64_t insertedBreaks);

 private:
  struct Block {
    int64_t base = 0;           // lines are base + rel, before the tree's deltas
    std::vector<int64_t> rel;   // ascending
    std::vector<uint64_t> ids;  // parallel to rel: keys of notes_
  };
  // The block that would hold `line`, and the block's effective base.
  size_t blockFor(int64_t line) const;
  int64_t baseOf(size_t block) const;
  void addDelta(size_t fromBlock, int64_t delta);
  // Folds the tree into the bases and rebuilds it for the present blocks.
  void normalize();
  void insertAt(size_t block, int64_t line, uint64_t id);
  // Position of `line` in its block, if bookmarked.
  std::optional<std::pair<size_t, size_t>> find(int64_t line) const;

  std::vector<Block> blocks_;
  std::vector<int64_t> tree_;  // Fenwick tree of base deltas, 1-based over blocks
  std::unordered_map<uint64_t, std::string> notes_;
  uint64_t nextId_ = 1;
  size_t size_ = 0;
};

}  // namespace quorin::bookmarks
