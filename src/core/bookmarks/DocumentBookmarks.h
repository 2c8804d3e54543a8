#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "bookmarks/BookmarkSet.h"
#include "document/DocumentTypes.h"

namespace quorin::bookmarks {

// A document's bookmarks, attached to it as its line anchors: edits move
// them, and the document keeps what an edit removed in its undo entry so
// that undo and redo bring back the lines and notes exactly. Setting a
// bookmark is not an edit: it adds no undo step and leaves the document
// unmodified.
//
// Every change of the set (by the user or by an edit, undo or redo) ends
// with the change handler, for the views, the panel and the sidecar's timer.
//
// Lifetime: made with attach(), shared by the document (which calls it on
// every edit) and its owner. Thread-safety: main thread only.
class DocumentBookmarks final : public document::LineAnchors {
 public:
  DocumentBookmarks() = default;

  const BookmarkSet& set() const { return set_; }
  void setChangeHandler(std::function<void()> handler) { onChange_ = std::move(handler); }

  // The user's changes; each calls the change handler once.
  bool toggle(int64_t line);
  void setNote(int64_t line, std::string note);  // bookmarks the line when it is not
  bool remove(int64_t line);
  void clear();
  void addAll(const std::vector<int64_t>& lines);
  // Replaces every bookmark (a sidecar read back, the command line).
  void replaceAll(const std::vector<Bookmark>& bookmarks);

  // The incident notes (Markdown) kept with the bookmarks in the sidecar;
  // changing them calls the change handler. Notes do not move with edits:
  // their links name lines as they were when written.
  const std::string& notes() const { return notes_; }
  void setNotes(std::string notes);

  bool empty() const override { return set_.empty(); }
  std::shared_ptr<const persistence::BookmarkChange> edited(
      std::span<const document::LineSplice> splices) override;
  void undone(std::span<const document::LineSplice> splices,
              const persistence::BookmarkChange* change) override;
  void redone(std::span<const document::LineSplice> splices,
              const persistence::BookmarkChange* change) override;

 private:
  void restore(const std::set<int64_t>& lines, const std::map<int64_t, std::string>& notes);
  void changed() const;

  BookmarkSet set_;
  std::string notes_;
  std::function<void()> onChange_;
};

}  // namespace quorin::bookmarks
