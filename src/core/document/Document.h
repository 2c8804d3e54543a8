#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "dispatch/Executor.h"
#include "dispatch/MainQueue.h"
#include "document/DocumentTypes.h"
#include "live/FileWatcher.h"
#include "live/TailFollower.h"
#include "persistence/CompactionScheduler.h"
#include "persistence/SaveCoordinator.h"
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
  ~Document();
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

  DocumentSnapshot snapshot() const;
  int64_t version() const { return table_->version(); }
  int64_t length() const { return table_->totalLength(); }

  // Unmodified exactly when undo and redo have led back to the saved text.
  // An undo group still open (typing in progress) counts as a change.
  bool isModified() const { return !undo_->isAtSavePoint() || undo_->isBatchOpen(); }
  bool isReadOnly() const { return readOnly_; }
  bool isUntitled() const { return path_.empty(); }
  const std::string& path() const { return path_; }
  storage::LargeFileOpenMode openMode() const { return openMode_; }
  const std::optional<storage::FileIdentity>& fileIdentity() const { return identity_; }
  // The file's own encoding (the working copy is UTF-8 when it differs).
  text::DetectedEncoding encoding() const { return sourceEncoding_.value_or(table_->encoding()); }
  bool isTranscoded() const { return sourceEncoding_.has_value(); }
  // Characters the transcoding had to replace by U+FFFD: saving over the
  // source would change those bytes, so the user is warned first.
  int64_t transcodeSubstitutions() const { return transcodeSubstitutions_; }
  text::LineEnding lineEnding() const { return table_->originalBuffer().lineEnding(); }
  // The part of the document the line index covers (all of it outside the slice and tail modes).
  storage::ByteRange editableRange() const;

  // After a successful save: the saved text is the current one.
  void markSaved(std::optional<storage::FileIdentity> newIdentity);

  using SaveCompletion =
      std::function<void(const std::expected<persistence::SaveOutcome, persistence::SaveError>&)>;
  // Writes the document to its file off the main thread; `done` runs on the
  // main thread. A request while a save runs is folded into it when the text
  // has not changed since that save began (it writes exactly this text), and
  // fails with saveInProgress otherwise.
  void save(SaveCompletion done);
  // Writes the document to `path` (always a rewrite) and makes that its file.
  void saveAs(const std::string& path, SaveCompletion done);
  bool isSaving() const { return saveInFlightVersion_.has_value(); }
  // Set by the file watcher while an outside change is unresolved.
  void setExternallyModified(bool modified) { externallyModified_ = modified; }
  // The user's preference (default on).
  void setInPlaceSaveEnabled(bool enabled) { inPlaceSaveEnabled_ = enabled; }

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
  bool isExternallyModified() const { return externallyModified_; }
  bool isFileMissing() const { return fileMissing_; }
  // Follows the file as another program appends to it (polled once a second). The appended bytes join
  // the document's end without being an edit: no undo step, not unsaved.
  std::expected<void, std::string> startFollowing();
  void stopFollowing();
  bool isFollowing() const { return follower_ && follower_->isFollowing(); }
  // Skips the unread bytes of a followed file that has fallen far behind; they stay reachable in the
  // file at the ranges skippedRanges() lists (file offsets), e.g. to open them as a slice.
  void catchUpToLive();
  const std::vector<storage::ByteRange>& skippedRanges() const { return skippedRanges_; }
  // After a rotation notice: open what the path names now, and follow it.
  bool switchToRotatedFile();
  bool acceptFollowedBytes(std::string_view bytes) override;

  storage::PieceTable& pieceTable() { return *table_; }
  storage::InMemoryLineIndex& lineIndex() { return *index_; }
  persistence::UndoStore& undoStore() { return *undo_; }
  const persistence::CompactionScheduler& compaction() const { return *compaction_; }

 private:
  Document(std::string path, OpenOptions options);
  void setUp(std::shared_ptr<const storage::OriginalBuffer> original);
  // The table, line index and compaction over `original` (at open, and after a rewrite).
  void attachText(std::shared_ptr<const storage::OriginalBuffer> original);
  void finishSave(int64_t version, std::expected<persistence::SaveResult, persistence::SaveError> result,
                  std::optional<std::filesystem::path> freshWorkingCopy, SaveCompletion done);
  void finishSaveAs(const std::string& path, int64_t startedAt,
                    std::expected<persistence::SaveResult, persistence::SaveError> result,
                    SaveCompletion done);
  persistence::SaveEncoder sourceEncoder() const;
  std::optional<EditRefusal> refusalFor(storage::ByteRange range) const;
  // Records the edit (or says it could not be kept) and tells everyone.
  EditOutcome finishEdit(const storage::EditResult& edit, std::optional<persistence::UndoEntry> entry);
  // A bulk edit as one EditResult over its span when that is small enough to
  // rescan for line breaks; otherwise the line index starts again.
  storage::EditResult afterBulkEdit(const storage::PieceTable::BulkEditResult& bulk, int64_t spanStart,
                                    int64_t spanEnd, bool& indexRestarted);
  bool willFitUndo(int64_t bytes);
  void applyInverse(const persistence::UndoEntry& entry);
  void applyForward(const persistence::UndoEntry& entry);
  void notify(const DocumentChange& change);
  void startWatching();
  void handleWatcherEvent(uint64_t generation, live::FileWatcher::Event event,
                          std::optional<std::filesystem::path> newPath);
  void outsideChange(LiveFileNotice::Kind quietKind);
  void liveNotice(LiveFileNotice notice);
  std::string fileName() const;
  void status(const std::string& text);

  std::string path_;  // follows the file across renames
  const OpenOptions options_;
  storage::LargeFileOpenMode openMode_ = storage::LargeFileOpenMode::wholeFileVirtual;
  bool readOnly_ = false;
  std::optional<storage::FileIdentity> identity_;
  std::unique_ptr<storage::ScratchDirectory> workingScratch_;  // a transcoded document's working copy
  std::optional<std::filesystem::path> workingCopyPath_;       // and the file in it
  std::unique_ptr<storage::ScratchDirectory> scratch_;         // outlives the index's scratch file
  std::shared_ptr<storage::PieceTable> table_;
  std::shared_ptr<storage::InMemoryLineIndex> index_;
  std::unique_ptr<persistence::UndoStore> undo_;
  std::shared_ptr<persistence::CompactionScheduler> compaction_;
  std::map<int, std::function<void(const DocumentChange&)>> listeners_;
  int nextListenerToken_ = 1;
  std::function<void(const storage::LineIndexProgress&)> progressHandler_;
  std::function<void(const std::string&)> statusHandler_;
  std::optional<int64_t> saveInFlightVersion_;
  std::vector<SaveCompletion> coalescedSaves_;
  bool externallyModified_ = false;
  bool inPlaceSaveEnabled_ = true;
  std::optional<text::DetectedEncoding> sourceEncoding_;  // set for a transcoded document
  bool sourceHadByteOrderMark_ = false;
  int64_t transcodeSubstitutions_ = 0;
  std::unique_ptr<live::FileWatcher> watcher_;
  uint64_t watcherGeneration_ = 0;  // events of a replaced watcher are ignored
  std::unique_ptr<live::TailFollower> follower_;
  std::function<void(const LiveFileNotice&)> liveHandler_;
  std::vector<storage::ByteRange> skippedRanges_;
  bool fileMissing_ = false;
};

}  // namespace quorin::document
