#pragma once

#include <chrono>
#include <cstdint>
#include <expected>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "dispatch/MainQueue.h"
#include "dispatch/SerialQueue.h"
#include "document/DocumentSaver.h"
#include "document/DocumentTypes.h"
#include "document/LiveFileTracker.h"
#include "document/SourceFile.h"
#include "live/TailFollower.h"
#include "persistence/CompactionScheduler.h"
#include "persistence/UndoStore.h"
#include "storage/FileIdentity.h"
#include "storage/InMemoryLineIndex.h"
#include "storage/LargeFileOpenMode.h"
#include "storage/PieceTable.h"
#include "storage/ScratchDirectory.h"

namespace quorin::document {

// One open file (or an untitled buffer) and everything that lives as long as
// it: the mapped original, the piece table, the line index and its storage,
// the undo history and the compaction scheduler. Every edit enters here and
// goes, in this order, to the piece table, then the line index and the undo
// history, then the change listeners, then the compaction scheduler.
//
// Background jobs never touch the document: they take snapshot() (text and
// line starts at one version) and compare versions when they finish.
//
// Lifetime: open() returns a shared pointer; the line index's background
// passes and the compaction job hold the document's parts weakly, so closing
// a document (dropping the last reference) ends them. Thread-safety: main
// thread only, like the views it serves; snapshots go to any thread.
class Document : public std::enable_shared_from_this<Document>, public live::TailSink {
 public:
  static std::expected<std::shared_ptr<Document>, OpenError> open(const std::string& path,
                                                                  OpenOptions options);
  static std::shared_ptr<Document> untitled(OpenOptions options);
  ~Document() override;
  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;

  // Edits. `before`/`after` are the selection to restore on undo and redo.
  std::expected<EditOutcome, EditRefusal> insert(int64_t offset, std::string_view bytes,
                                                 persistence::TextSelection before,
                                                 persistence::TextSelection after);
  std::expected<EditOutcome, EditRefusal> remove(storage::ByteRange range, persistence::TextSelection before,
                                                 persistence::TextSelection after);
  // A replacement is one edit and one undo step.
  std::expected<EditOutcome, EditRefusal> replace(storage::ByteRange range, std::string_view bytes,
                                                  persistence::TextSelection before,
                                                  persistence::TextSelection after);
  // Many replacements (sites in document order, not overlapping) as one bulk
  // edit and one undo step, however many sites.
  std::expected<EditOutcome, EditRefusal> replaceAll(std::span<const storage::PieceTable::BulkEditSite> sites,
                                                     std::string description,
                                                     persistence::TextSelection before,
                                                     persistence::TextSelection after);
  // Groups the edits between the two calls into one undo step.
  void beginUndoGroup(std::string description, persistence::TextSelection before);
  void endUndoGroup(persistence::TextSelection after);
  // The selection to show afterwards; absent when there was nothing to do.
  std::optional<persistence::TextSelection> undo();
  std::optional<persistence::TextSelection> redo();
  bool canUndo() const { return undo_->canUndo(); }
  bool canRedo() const { return undo_->canRedo(); }
  // What the next undo or redo takes back or does again ("Typing", "Replace All"); empty when unnamed or
  // none.
  std::string undoDescription() const;
  std::string redoDescription() const;
  // Forgets the history and counts the present text as saved.
  void discardHistory();

  DocumentSnapshot snapshot() const;
  // A snapshot with the facts a job reports alongside it (compare, reports).
  DescribedSnapshot describedSnapshot() const;
  int64_t version() const { return table_->version(); }
  int64_t length() const { return table_->totalLength(); }

  // Unmodified exactly when undo and redo have led back to the saved text and
  // the file still holds it. An undo group still open (typing in progress)
  // counts as a change, and so does a file deleted from under the document.
  bool isModified() const {
    return !undo_->isAtSavePoint() || undo_->isBatchOpen() || live_->isFileMissing();
  }
  bool isReadOnly() const { return readOnly_; }
  bool isUntitled() const { return path_.empty(); }
  const std::string& path() const { return path_; }
  storage::LargeFileOpenMode openMode() const { return openMode_; }
  const std::optional<storage::FileIdentity>& fileIdentity() const { return source_.identity; }
  // The file's own encoding (the working copy is UTF-8 when it differs).
  text::DetectedEncoding encoding() const { return source_.transcodedFrom.value_or(table_->encoding()); }
  bool isTranscoded() const { return source_.isTranscoded(); }
  // Characters the transcoding had to replace by U+FFFD: saving over the
  // source would change those bytes, so the user is warned first.
  int64_t transcodeSubstitutions() const { return source_.substitutions; }
  text::LineEnding lineEnding() const { return table_->originalBuffer().lineEnding(); }
  // The part of the document the line index covers (all of it outside the slice and tail modes).
  storage::ByteRange editableRange() const;

  // The line index, as far as its users need it.
  storage::LineIndexProgress lineIndexProgress() const { return index_->progress(); }
  // Blocks until the index is complete (true) or `timeout` passed; progress still arrives on the main queue.
  bool waitForLineIndex(std::chrono::milliseconds timeout) const {
    return index_->waitUntilComplete(timeout);
  }
  void cancelLineIndex() { index_->cancel(); }
  bool isCompactionArmed() const { return compaction_->isArmed(); }
  size_t pieceCount() const { return table_->pieceCount(); }

  // After a successful save: the saved text is the current one.
  void markSaved(std::optional<storage::FileIdentity> newIdentity);

  using SaveCompletion = document::SaveCompletion;
  // Writes the document to its file off the main thread; `done` runs on the
  // main thread. A request while a save runs is folded into it when the text
  // has not changed since that save began (it writes exactly this text), and
  // fails with saveInProgress otherwise. A file deleted from under the
  // document is written again.
  void save(SaveCompletion done);
  // Writes the document to `path` (always a rewrite) and makes that its file.
  void saveAs(const std::string& path, SaveCompletion done);
  bool isSaving() const { return saver_->isSaving(); }
  // Set by the file watcher while an outside change is unresolved.
  void setExternallyModified(bool modified) { live_->setExternallyModified(modified); }
  // The user's preference (default on).
  void setInPlaceSaveEnabled(bool enabled) { saver_->setInPlaceEnabled(enabled); }

  // The crash-recovery journal's recorder (null: none).
  void setEditRecorder(std::shared_ptr<EditRecorder> recorder) { recorder_ = std::move(recorder); }
  // Per-line state (the bookmarks) that follows edits and comes back with undo; null detaches it.
  void setLineAnchors(std::shared_ptr<LineAnchors> anchors) { anchors_ = std::move(anchors); }
  const std::shared_ptr<LineAnchors>& lineAnchors() const { return anchors_; }

  // Called on the main thread after every change, in registration order.
  int addChangeListener(std::function<void(const DocumentChange&)> listener);
  void removeChangeListener(int token);
  // Line-index progress and one-off status texts, on the main thread.
  void setIndexProgressHandler(std::function<void(const storage::LineIndexProgress&)> handler);
  void setStatusHandler(std::function<void(const std::string&)> handler);

  // Outside changes and following. Notices arrive on the main thread.
  void setLiveFileHandler(std::function<void(const LiveFileNotice&)> handler);
  // The user's answer to an externalChange notice: read the file again, or keep this text (the next save
  // then rewrites the file with it).
  void resolveExternalChange(bool reload);
  // Reads the file again, dropping the undo history (it describes the old text).
  bool reload();
  bool isExternallyModified() const { return live_->isExternallyModified(); }
  bool isFileMissing() const { return live_->isFileMissing(); }
  // Follows the file as another program appends to it (polled once a second). The appended bytes join
  // the document's end without being an edit: no undo step, not unsaved.
  std::expected<void, std::string> startFollowing();
  void stopFollowing();
  bool isFollowing() const { return live_->isFollowing(); }
  // Skips the unread bytes of a followed file that has fallen far behind; they stay reachable in the
  // file at the ranges skippedRanges() lists (file offsets), e.g. to open them as a slice. A save over
  // the file would delete them and is refused; Save As writes the text without them.
  void catchUpToLive();
  const std::vector<storage::ByteRange>& skippedRanges() const { return live_->skippedRanges(); }
  // After a rotation notice: open what the followed path names now, and follow it.
  bool switchToRotatedFile();
  bool acceptFollowedBytes(std::string_view bytes) override;

 private:
  friend class DocumentSaver;
  friend class LiveFileTracker;

  Document(std::string path, OpenOptions options);
  void setUp(std::shared_ptr<const storage::OriginalBuffer> original);
  // The table, line index and compaction over `original` (at open, and after a rewrite).
  void attachText(std::shared_ptr<const storage::OriginalBuffer> original);
  // attachText, then tells the listeners that the whole text was replaced.
  void replaceText(std::shared_ptr<const storage::OriginalBuffer> original);
  // Reads the file at path() again into a fresh text; the history is dropped.
  bool readFileAgain();
  std::optional<EditRefusal> refusalFor(storage::ByteRange range) const;
  // Records the edit in the history (or says it could not be kept) and tells everyone.
  EditOutcome recordEdit(const storage::EditResult& edit, std::optional<persistence::UndoEntry> entry,
                         bool indexRestarted);
  // A bulk edit as one EditResult over its span when that is small enough to
  // rescan for line breaks; otherwise the line index starts again.
  storage::EditResult afterBulkEdit(const storage::PieceTable::BulkEditResult& bulk, int64_t spanStart,
                                    int64_t spanEnd, bool& indexRestarted);
  bool willFitUndo(int64_t bytes);
  void applyInverse(const persistence::UndoEntry& entry);
  void applyForward(const persistence::UndoEntry& entry);
  void notify(const DocumentChange& change);
  // Edits as line splices for the anchors (DocumentLines.cpp). A site's
  // offset is in the text before the edit, or in the result with the sites
  // above it applied when offsetsInResult; its line is found before the
  // text changes (the index's snapshots do not outlive an edit).
  struct SiteLines {
    int64_t offset = 0;
    int64_t removedBreaks = 0;
    int64_t insertedBreaks = 0;
    std::optional<int64_t> line;  // set by locate(); none past what the index knows
  };
  char lineTerminatorByte() const;
  bool tracksLines(const persistence::UndoEntry* entry) const;
  // Hands an applied history entry (one edit, or an ascending run applied in bulk) to the recorder.
  void recordHistory(const persistence::UndoEntry& entry, bool undoing);
  int64_t breaksIn(std::string_view bytes) const;
  int64_t breaksInRange(const storage::PieceTableSnapshot& text, storage::ByteRange range) const;
  void locate(std::span<SiteLines> sites) const;
  static std::vector<LineSplice> splicesOf(std::span<const SiteLines> sites, bool offsetsInResult);
  // An undo entry's edits (one, or an ascending run) as splices in their forward direction, counted
  // in the text as it is now: the result when undoing, the text before the edit when redoing.
  std::vector<LineSplice> splicesOfHistory(const persistence::UndoEntry& entry, bool undoing) const;
  void status(const std::string& text);
  // Document state changes only on the main thread; a caller elsewhere is a bug.
  void requireMainThread() const;

  std::string path_;  // follows the file across renames
  const OpenOptions options_;
  storage::LargeFileOpenMode openMode_ = storage::LargeFileOpenMode::wholeFileVirtual;
  bool readOnly_ = false;
  SourceFile source_;
  std::unique_ptr<storage::ScratchDirectory> scratch_;  // outlives the index's scratch file
  std::shared_ptr<storage::PieceTable> table_;
  std::shared_ptr<storage::InMemoryLineIndex> index_;
  std::unique_ptr<persistence::UndoStore> undo_;
  std::shared_ptr<persistence::CompactionScheduler> compaction_;
  std::shared_ptr<LineAnchors> anchors_;
  std::shared_ptr<EditRecorder> recorder_;
  std::map<int, std::function<void(const DocumentChange&)>> listeners_;
  int nextListenerToken_ = 1;
  std::function<void(const storage::LineIndexProgress&)> progressHandler_;
  std::function<void(const std::string&)> statusHandler_;
  // This document's "quorin.lineindex" queue, unless the options name one: two large documents index
  // side by side instead of taking turns on one thread.
  std::shared_ptr<dispatch::SerialQueue> indexQueue_;
  std::unique_ptr<DocumentSaver> saver_;
  std::unique_ptr<LiveFileTracker> live_;
};

}  // namespace quorin::document
