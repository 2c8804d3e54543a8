#pragma once

#include <QString>
#include <cstdint>
#include <optional>
#include <vector>

#include "document/DocumentTypes.h"

namespace quorin::app {

// Line geometry over one document snapshot, answering from the line index
// where it already knows the answer and otherwise by a scan of at most
// kScanLimit bytes, so that no question costs time in proportion to the file
// (or to one gigabyte-long line). Where a bounded scan finds no line break,
// the answers say so instead of guessing.
//
// Thread-safety: a value over immutable snapshots; any thread.
class TextLines {
 public:
  static constexpr int64_t kScanLimit = 1 << 20;

  // `range`: the part of the text shown (all of it, or an open mode's window).
  TextLines(document::DocumentSnapshot snapshot, storage::ByteRange range, uint8_t terminator);

  const storage::PieceTableSnapshot& text() const { return snap_.text; }
  const storage::LineIndexSnapshot& lines() const { return snap_.lines; }
  storage::ByteRange range() const { return range_; }
  uint8_t terminator() const { return terminator_; }

  // The start of the line holding `offset` (a line break belongs to the line it ends).
  int64_t lineStartOf(int64_t offset) const;
  // The start of the line after the one starting at `lineStart`; absent at the
  // last line, or when its end lies past a bounded scan not yet indexed.
  std::optional<int64_t> nextLineStart(int64_t lineStart) const;
  // The start of the line before; absent on the first line.
  std::optional<int64_t> previousLineStart(int64_t lineStart) const;
  // Where the line's text ends (before "\n", "\r\n" or "\r"); at most the
  // scan limit past `lineStart` when its end is not known yet.
  int64_t contentEnd(int64_t lineStart) const;
  // The zero-based number of the line holding `offset`, when the index knows it.
  std::optional<int64_t> lineNumberOf(int64_t offset) const;
  // The start of line `line` when known.
  std::optional<int64_t> startOfLine(int64_t line) const;
  // The line count: exact once the index is complete, else its estimate.
  int64_t estimatedLineCount() const;

  // Character steps: a UTF-8 sequence (an invalid byte alone) or "\r\n" as one.
  int64_t nextCharacter(int64_t offset) const;
  int64_t previousCharacter(int64_t offset) const;
  // Word steps as editors make them: skip spaces and punctuation, then a word.
  int64_t nextWordEnd(int64_t offset) const;
  int64_t previousWordStart(int64_t offset) const;
  // The word around `offset` (for double-click).
  storage::ByteRange wordAt(int64_t offset) const;

 private:
  // Start of the last line known to the index (lines before it are fully known).
  int64_t indexedFrontier() const;
  std::optional<int64_t> scanForward(int64_t from,
                                     int64_t limit) const;  // first terminator at or after `from`
  std::optional<int64_t> scanBackward(int64_t before,
                                      int64_t limit) const;  // last terminator before `before`

  document::DocumentSnapshot snap_;
  storage::ByteRange range_;
  uint8_t terminator_;
};

// One line's visible part laid out in character cells of a fixed-pitch font:
// tabs expanded, control characters and invalid bytes shown as symbols, wide
// characters two cells. Only the bytes from a starting point onwards are laid
// out, so a gigabyte line costs what is on screen.
struct RowLayout {
  QString display;              // what to draw, starting at cell `firstCell`
  int64_t firstCell = 0;        // cell of the first laid-out character
  int64_t firstByte = 0;        // document offset of that character
  std::vector<int64_t> byteAt;  // per character: its document offset (size = characters + 1)
  std::vector<int64_t> cellAt;  // per character: its first cell (size = characters + 1)
  std::vector<int32_t> charAt;  // per character: its index in `display`

  // The cell where the character at (or containing) `offset` begins.
  int64_t cellOf(int64_t offset) const;
  // The offset of the character boundary nearest to `cell` (rounding to the closer side).
  int64_t offsetAtCell(double cell) const;
};

inline constexpr int kTabWidth = 4;
// Lines up to this many bytes are laid out from their start, so columns are
// exact; past it a column is counted as one byte up to the visible part.
inline constexpr int64_t kExactLayoutBytes = 16 * 1024;

// Lays out the content [lineStart, contentEnd) of a line from cell
// `fromCell` for `cellCount` cells.
RowLayout layoutRow(const storage::PieceTableSnapshot& text, int64_t lineStart, int64_t contentEnd,
                    int64_t fromCell, int64_t cellCount);

}  // namespace quorin::app
