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
// starts from the whole edited text as edits of the base.
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
  void pause(const JournalWriteError& error);
  void end();

  Options options_;
  persistence::FileIo& io_;
  std::optional<RecoveryJournal> journal_;
  bool paused_ = false;
  int64_t bytesAtSaveStart_ = -1;  // the journal's length when a save took its snapshot
  std::optional<Clock::time_point> lastEdit_;
  std::optional<Clock::time_point> lastFlush_;
  std::string status_;
};

}  // namespace quorin::recovery
