#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "dispatch/Executor.h"
#include "dispatch/MainQueue.h"
#include "persistence/AvailableMemoryProvider.h"
#include "persistence/FileIo.h"
#include "persistence/UndoCapPolicy.h"
#include "persistence/UndoEntry.h"
#include "persistence/VolumeInfo.h"
#include "storage/ByteRange.h"
#include "storage/EditResult.h"
#include "storage/FileIdentity.h"
#include "storage/LargeFileOpenMode.h"
#include "storage/LineIndexOptions.h"
#include "storage/LineIndexSnapshot.h"
#include "storage/MMapError.h"
#include "storage/PieceTableSnapshot.h"
#include "text/DetectedEncoding.h"
#include "text/LineEnding.h"

namespace quorin::document {

struct OpenOptions {
  dispatch::MainQueue* mainQueue = nullptr;        // required: progress, timers and pressure events go there
  storage::LargeFileOpenRequest mode;              // validated by the caller
  std::optional<text::DetectedEncoding> encoding;  // reopen with this encoding instead of detecting
  // Opening a file in another encoding than UTF-8 first transcodes it into a
  // UTF-8 working copy: progress (bytes done, total) and cancellation for that.
  std::function<void(int64_t, int64_t)> transcodeProgress;
  std::function<bool()> transcodeCancelled;
  // Seams for tests and tools; null or default means the product's own.
  std::shared_ptr<const persistence::AvailableMemoryProvider> memory;
  persistence::UndoCapPolicy undoPolicy;
  bool watchMemoryPressure = true;
  std::shared_ptr<dispatch::Executor> lineIndexQueue;
  std::shared_ptr<dispatch::Executor> compactionQueue;
  std::shared_ptr<dispatch::Executor> saveQueue;  // null: the process's "quorin.save" queue
  persistence::FileIo* fileIo = nullptr;          // null: the system's
  const persistence::VolumeInfo* volumes = nullptr;
  std::optional<std::filesystem::path> journalDirectory;
  bool watchFile =
      true;  // watch the file for outside changes (off in tests that do not need a thread for it)
  storage::LineIndexLimits lineIndexLimits;
  int64_t compactionPieceThreshold = 100'000;
  double compactionIdleSeconds = 2.0;
};

// Why a file could not be opened; describe() is the text to show.
struct OpenError {
  std::string message;
  std::string describe() const { return message; }
};

// Why an edit was refused; describe() is the status-bar text.
struct EditRefusal {
  enum class Kind { readOnly, outsideWindow };
  Kind kind;
  std::string describe() const {
    return kind == Kind::readOnly ? "This document is open read-only."
                                  : "Only the loaded part of the file can be edited.";
  }
  bool operator==(const EditRefusal&) const = default;
};

struct EditOutcome {
  storage::EditResult edit;
  bool undoable = true;  // false: too large for the undo history, which was cleared
};

// What listeners hear after every change.
struct DocumentChange {
  // reload: the text was read again from the file (after an outside change, or
  // the same text after a save rewrote the file). append: bytes a followed
  // file grew by, added at the end; not an edit of the user's.
  enum class Kind { edit, undo, redo, reload, append };
  Kind kind = Kind::edit;
  // The change as one edit of the text before it (a bulk edit as the span
  // from its first to its last site).
  storage::EditResult edit;
  // The line index started again instead of taking the edit: line numbers
  // beyond its first pass are unknown until it has caught up.
  bool lineIndexRestarted = false;
};

// One edit seen as lines: on `line` (0-based), `removedBreaks` line breaks
// went and `insertedBreaks` came; the lines below moved by the difference.
// An edit of several sites is several splices in document order, each line
// counted in the text as the splices before it left it.
struct LineSplice {
  int64_t line = 0;
  int64_t removedBreaks = 0;
  int64_t insertedBreaks = 0;
  bool operator==(const LineSplice&) const = default;
};

// Per-line state that follows the text through edits, undo and redo (the
// bookmarks). The document hands it every edit of the user's as splices,
// before the change listeners hear of it, and keeps what edited() returns in
// the edit's undo entry, to hand back on undo and redo with the same splices.
// An edit on lines the line index has not reached yet is not passed on.
// Called on the main thread only.
class LineAnchors {
 public:
  virtual ~LineAnchors() = default;
  // Nothing to move: the document skips counting lines.
  virtual bool empty() const = 0;
  // Returns what the edit removed or kept on its lines (null when nothing).
  virtual std::shared_ptr<const persistence::BookmarkChange> edited(std::span<const LineSplice> splices) = 0;
  virtual void undone(std::span<const LineSplice> splices, const persistence::BookmarkChange* change) = 0;
  virtual void redone(std::span<const LineSplice> splices, const persistence::BookmarkChange* change) = 0;
};

// One edit as the document hands it to its recorder: at `offset` (in the
// text as the sites before it left it), `removed` bytes went and
// `inserted` came. The view is valid during the call only.
struct RecordedSite {
  int64_t offset = 0;
  int64_t removed = 0;
  std::string_view inserted;
};

// Keeps what the user did since the last save (the crash-recovery journal).
// The document calls it on the main thread: after every edit, undo and redo
// and the bytes a followed file grew by (`recorded`), when a save takes its
// snapshot (`saveStarted`) and when the save has reached its commit point
// (`saved`, with the file's new identity and path; `unchanged` when no edit
// came in between), and when the text was read again from the file
// (`textReplaced`).
class EditRecorder {
 public:
  virtual ~EditRecorder() = default;
  virtual void recorded(std::span<const RecordedSite> sites) = 0;
  virtual void saveStarted() = 0;
  virtual void saved(const std::optional<storage::FileIdentity>& identity, const std::string& path,
                     bool unchanged) = 0;
  virtual void textReplaced() = 0;
};

// What happened to the file on disk, for the application to show.
struct LiveFileNotice {
  enum class Kind {
    externalChange,  // changed on disk while the document has unsaved edits: offer Reload / Keep Mine
    reloaded,        // changed on disk, no unsaved edits: read again
    renamed,         // moved; newPath is where it is now
    deleted,         // gone from disk; the text is kept
    volumeGone,      // its volume was unmounted; the text is kept
    truncated,       // a followed file shrank: read again (or externalChange when edited)
    rotated,         // a followed file was replaced by a new one: offer to switch
    lagChanged,      // a followed file's unread bytes (lagBytes); canCatchUp past the threshold
    readError,       // reading a followed file failed; following stopped
    caughtUp,        // skipped to the live end
  };
  Kind kind;
  std::string message;
  std::optional<std::string> newPath;
  int64_t lagBytes = 0;
  bool canCatchUp = false;
};

// Text and line starts at one version, for background jobs.
struct DocumentSnapshot {
  storage::PieceTableSnapshot text;
  storage::LineIndexSnapshot lines;
  int64_t version() const { return text.version(); }
};

// A snapshot with the facts about its document that a job's report needs;
// taken on the main thread, read anywhere.
struct DescribedSnapshot {
  DocumentSnapshot snapshot;
  // The part the line index covers: the whole text, or the loaded slice or tail.
  storage::ByteRange range;
  text::LineEnding lineEnding = text::LineEnding::lf;
  text::DetectedEncoding encoding = text::DetectedEncoding::utf8;  // the file's own
  bool transcoded = false;  // the snapshot is a UTF-8 working copy of `encoding`
  bool modified = false;    // unsaved edits are part of the snapshot
  bool partial = false;     // opened as a slice or a tail
};

// Shown after an edit too large for the undo history.
inline constexpr const char* kTooLargeToUndoMessage =
    "This operation is too large to undo on this computer — you'll be asked before closing unsaved changes.";

}  // namespace quorin::document
