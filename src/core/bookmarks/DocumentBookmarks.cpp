#include "bookmarks/DocumentBookmarks.h"

#include <algorithm>

namespace quorin::bookmarks {
namespace {

using document::LineSplice;
using persistence::BookmarkChange;

void record(const std::vector<Bookmark>& marks, int64_t lineShift, std::set<int64_t>& lines,
            std::map<int64_t, std::string>& notes) {
  for (const Bookmark& mark : marks) {
    lines.insert(mark.line + lineShift);
    if (!mark.note.empty()) notes[mark.line + lineShift] = mark.note;
  }
}

}  // namespace

bool DocumentBookmarks::toggle(int64_t line) {
  const bool on = set_.toggle(line);
  changed();
  return on;
}

void DocumentBookmarks::setNote(int64_t line, std::string note) {
  set_.set(line, std::move(note));
  changed();
}

bool DocumentBookmarks::remove(int64_t line) {
  const bool removed = set_.remove(line);
  if (removed) changed();
  return removed;
}

void DocumentBookmarks::clear() {
  if (set_.empty()) return;
  set_.clear();
  changed();
}

void DocumentBookmarks::addAll(const std::vector<int64_t>& lines) {
  set_.addAll(lines);
  changed();
}

void DocumentBookmarks::replaceAll(const std::vector<Bookmark>& bookmarks) {
  set_.clear();
  std::vector<int64_t> lines;
  lines.reserve(bookmarks.size());
  for (const Bookmark& mark : bookmarks) lines.push_back(mark.line);
  set_.addAll(lines);
  for (const Bookmark& mark : bookmarks) {
    if (!mark.note.empty()) set_.set(mark.line, mark.note);
  }
  changed();
}

void DocumentBookmarks::setNotes(std::string notes) {
  if (notes == notes_) return;
  notes_ = std::move(notes);
  changed();
}

std::shared_ptr<const BookmarkChange> DocumentBookmarks::edited(std::span<const LineSplice> splices) {
  auto change = std::make_shared<BookmarkChange>();
  int64_t shift = 0;  // what the splices above did to the lines: before = now − shift
  int64_t recordedUpTo = -1;
  for (const LineSplice& s : splices) {
    // A splice on the line where the one above ended: that line's bookmark
    // was the one above's own, already recorded where it was before.
    const int64_t first = std::max(s.line, recordedUpTo + 1);
    record(set_.between(first, s.line + s.removedBreaks), -shift, change->linesBefore, change->notesBefore);
    set_.applyEdit(s.line, s.removedBreaks, s.insertedBreaks);
    // Later splices lie below this one's lines, so these are final already.
    record(set_.between(s.line, s.line + s.insertedBreaks), 0, change->linesAfter, change->notesAfter);
    recordedUpTo = s.line + s.insertedBreaks;
    shift += s.insertedBreaks - s.removedBreaks;
  }
  changed();
  const bool same = change->linesBefore == change->linesAfter && change->notesBefore == change->notesAfter;
  return same ? nullptr : change;
}

void DocumentBookmarks::undone(std::span<const LineSplice> splices, const BookmarkChange* change) {
  // Undone last first: each splice's line is then counted as when it was made.
  for (auto s = splices.rbegin(); s != splices.rend(); ++s) {
    set_.applyEdit(s->line, s->insertedBreaks, s->removedBreaks);
  }
  if (change) {
    int64_t shift = 0;
    for (const LineSplice& s : splices) {
      set_.removeBetween(s.line - shift, s.line - shift + s.removedBreaks);
      shift += s.insertedBreaks - s.removedBreaks;
    }
    restore(change->linesBefore, change->notesBefore);
  }
  changed();
}

void DocumentBookmarks::redone(std::span<const LineSplice> splices, const BookmarkChange* change) {
  for (const LineSplice& s : splices) set_.applyEdit(s.line, s.removedBreaks, s.insertedBreaks);
  if (change) {
    for (const LineSplice& s : splices) set_.removeBetween(s.line, s.line + s.insertedBreaks);
    restore(change->linesAfter, change->notesAfter);
  }
  changed();
}

void DocumentBookmarks::restore(const std::set<int64_t>& lines, const std::map<int64_t, std::string>& notes) {
  for (const int64_t line : lines) {
    const auto note = notes.find(line);
    set_.set(line, note == notes.end() ? std::string() : note->second);
  }
}

void DocumentBookmarks::changed() const {
  if (onChange_) onChange_();
}

}  // namespace quorin::bookmarks
