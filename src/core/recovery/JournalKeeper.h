#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "document/DocumentTypes.h"
#include "persistence/FileIo.h"
#include "recovery/RecoveryJournal.h"

namespace quorin::recovery {

// The text of a document as minimal edits of its base (the original
// buffer): deletions of the base's unused ranges and insertions of the
// appended bytes, in the text as each site before it left it. What a
// journal starts from when it cannot go on from where it was.
std::vector<JournalSite> sitesFromPieces(const storage::PieceTableSnapshot& text);

// A document's recorder: keeps its journal of unsaved edits. The journal is
// created at the first edit after an open, a save or a reload; ended after
// a save's commit point (started again, with the edits made during the
// save, when there were some), on a reload, and when the document closes.
// A failed write pauses recording with a status ("Crash recovery paused: "
// and the reason); the next edit tries again with a fresh journal that
// starts from the whole edited text as edits of the base. The same fresh
// start compacts a journal that has grown far past what the text's edits
// need (typing and undoing for hours). Both need the document's text to
// lie over the journal's base; after a save that edits overtook it lies
// over the old file, and a pause lasts until the next save.
//
// Thread-safety: main thread only, like the document that calls it.
class JournalKeeper final : public document::EditRecorder {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::seconds kQuietFlush{2};
  static constexpr std::chrono::seconds kLongestUnflushed{30};

  struct Options {
    std::filesystem::path directory;  // the scratch root
    JournalHeader header;             // the base: the file as opened
    std::function<storage::PieceTableSnapshot()> text;
    persistence::FileIo* io = nullptr;                 // null: the system's
    std::function<void(const std::string&)> onStatus;  // paused / resumed
    std::function<Clock::time_point()> now;            // null: the clock
    // A journal past this many bytes, and more than twice what the text's
    // own edits would take, is rewritten as those edits (needs `text`).
    int64_t compactAboveBytes = int64_t{64} << 20;
  };
  explicit JournalKeeper(Options options);

  void recorded(std::span<const document::RecordedSite> sites) override;
  void saveStarted() override;
  void saved(const std::optional<storage::FileIdentity>& identity, const std::string& path,
             bool unchanged) override;
  void textReplaced() override;

  // The auto-save timer: flushes 2 s after the last edit, and at least
  // every 30 s while edits go on. The owner calls it every second or so.
  void flushIfDue();
  // The document closed without saving (or was saved and closed): no journal stays.
  void closed();

  const std::string& status() const { return status_; }  // empty unless paused
  std::optional<std::filesystem::path> journalPath() const;

 private:
  bool ensureJournal();
  // Starts a fresh journal holding the text as edits of its base.
  bool startFromText();
  void compactIfLarge();
  // Recording works again: the status is cleared and told.
  void resumed();
  void pause(const JournalWriteError& error);
  void end();

  Options options_;
  persistence::FileIo& io_;
  std::optional<RecoveryJournal> journal_;
  bool paused_ = false;
  // The document's original buffer is the journal's base, so its pieces
  // spell the edits (not after a save that edits overtook, which left the
  // text over the old file until the next save).
  bool textIsOverBase_ = true;
  int64_t bytesAtSaveStart_ = -1;  // the journal's length when a save took its snapshot
  std::optional<Clock::time_point> lastEdit_;
  std::optional<Clock::time_point> lastFlush_;
  std::string status_;
};

}  // namespace quorin::recovery
