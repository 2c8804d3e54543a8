#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace quorin::persistence {

// The caret and selection of a document: `anchor` stays put while `caret`
// moves; equal for a plain caret. Byte offsets.
struct TextSelection {
  int64_t anchor = 0;
  int64_t caret = 0;

  static TextSelection at(int64_t offset) { return {offset, offset}; }
  bool operator==(const TextSelection&) const = default;
};

// Bookmarks before and after an edit that moved or removed some.
struct BookmarkChange {
  std::set<int64_t> linesBefore;
  std::set<int64_t> linesAfter;
  std::map<int64_t, std::string> notesBefore;
  std::map<int64_t, std::string> notesAfter;
};

using SharedBytes = std::shared_ptr<const std::string>;

// One step of the undo history. Byte payloads are shared, never copied on
// push, undo or redo: a replace-all's thousand identical replacements share
// one buffer.
struct UndoEntry {
  int64_t docOffsetAtEdit = 0;
  SharedBytes originalBytes;  // removed by the edit; null or empty for an insertion
  SharedBytes insertedBytes;  // inserted by the edit; null or empty for a deletion
  TextSelection cursorBefore;
  TextSelection cursorAfter;
  bool isBatch = false;
  std::string description;
  // A batch's edits in the order they were made, each at its offset in the
  // document as the previous one left it.
  std::vector<UndoEntry> batchSubEdits;
  std::shared_ptr<const BookmarkChange> bookmarks;  // null when the edit left bookmarks alone

  int64_t removedLength() const { return originalBytes ? static_cast<int64_t>(originalBytes->size()) : 0; }
  int64_t insertedLength() const { return insertedBytes ? static_cast<int64_t>(insertedBytes->size()) : 0; }
};

inline SharedBytes sharedBytes(std::string bytes) {
  return std::make_shared<const std::string>(std::move(bytes));
}

// The fixed part of every entry's weight: it bounds a flood of one-byte edits.
inline constexpr int64_t kUndoEntryOverheadBytes = 256;

// Bytes removed + bytes inserted + kUndoEntryOverheadBytes, plus the weights
// of a batch's edits. Overflow stops the program.
int64_t entryWeight(const UndoEntry& entry);

}  // namespace quorin::persistence
