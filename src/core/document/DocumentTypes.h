#pragma once

#include <cstdint>
#include <functional>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "dispatch/Executor.h"
#include "dispatch/MainQueue.h"
#include "persistence/AvailableMemoryProvider.h"
#include "persistence/FileIo.h"
#include "persistence/VolumeInfo.h"
#include "persistence/UndoCapPolicy.h"
#include "storage/EditResult.h"
#include "storage/LargeFileOpenMode.h"
#include "storage/LineIndexOptions.h"
#include "storage/LineIndexSnapshot.h"
#include "storage/MMapError.h"
#include "storage/PieceTableSnapshot.h"
#include "text/DetectedEncoding.h"

namespace quorin::document {

struct OpenOptions {
  dispatch::MainQueue* mainQueue = nullptr;  // required: progress, timers and pressure events go there
  storage::LargeFileOpenRequest mode;        // validated by the caller
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
  // reload: same text, new storage (after a save rewrote the file): positions stay valid.
  enum class Kind { edit, undo, redo, reload };
  Kind kind = Kind::edit;
  // The change as one edit of the text before it (a bulk edit as the span
  // from its first to its last site).
  storage::EditResult edit;
  // The line index started again instead of taking the edit: line numbers
  // beyond its first pass are unknown until it has caught up.
  bool lineIndexRestarted = false;
};

// Text and line starts at one version, for background jobs.
struct DocumentSnapshot {
  storage::PieceTableSnapshot text;
  storage::LineIndexSnapshot lines;
  int64_t version() const { return text.version(); }
};

// Shown after an edit too large for the undo history.
inline constexpr const char* kTooLargeToUndoMessage =
    "This operation is too large to undo on this computer — you'll be asked before closing unsaved changes.";

}  // namespace quorin::document
