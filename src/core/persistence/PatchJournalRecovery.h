#pragma once

#include <optional>
#include <string>
#include <vector>

#include "persistence/FileIo.h"
#include "persistence/PatchJournal.h"

namespace quorin::persistence {

// A question for the user, as data: the application shows it as an alert
// with these buttons (in this order, `defaultButton` the default) and hands
// the chosen title back.
struct RecoveryPrompt {
  std::string title;
  std::string text;
  std::vector<std::string> buttons;
  size_t defaultButton = 0;
  bool operator==(const RecoveryPrompt&) const = default;
};

// What an interrupted in-place save left behind, and what to do about it.
//
// Every region of the journal is compared with the target file: holding the
// pre-image, the post-image, or neither. All post-images: the save finished;
// all pre-images: it never started; both kinds mixed: the file is torn and
// the user is offered to restore it (default); anything else: the file was
// changed afterwards and restoring would overwrite that (not the default).
// A target that is now a different file (device or inode changed since the
// save began) is treated as changed afterwards even when its regions look
// torn: bytes that happen to match are no proof it is the same file. Only a
// target that does not exist (ENOENT) makes a journal pointless; one that
// cannot be looked at now (EACCES, EIO, ELOOP...) keeps its journal.
//
// A journal whose save is still running (its lock is held) is left alone:
// it is not the remains of a crash.
//
// Thread-safety: stateless; called on the main thread at launch.
class PatchJournalRecovery {
 public:
  enum class RegionState { matchesPreImage, matchesPostImage };
  enum class Verdict { targetMissing, targetInaccessible, completed, neverStarted, torn, changedExternally };

  struct Assessment {
    Verdict verdict;
    std::vector<std::optional<RegionState>> regions;
    std::optional<RecoveryPrompt> prompt;  // torn and changedExternally only
    std::string problem;                   // targetInaccessible: why the target could not be examined
  };

  static std::vector<std::optional<RegionState>> classify(const PatchJournal::ParsedJournal& journal,
                                                          FileIo& io = FileIo::system());
  static Assessment assess(const PatchJournal::ParsedJournal& journal, FileIo& io = FileIo::system());

  // Deals with the verdicts that need no question (deleting the journal) and
  // returns the prompt to show otherwise. A journal in use by a running save,
  // or whose target cannot be examined now, is kept and nothing is asked.
  static std::optional<RecoveryPrompt> begin(const PatchJournal::ParsedJournal& journal,
                                             FileIo& io = FileIo::system());
  // Carries out the chosen button. Returns the failure message to show when
  // a restore could not be written (the journal is then kept for next time).
  static std::optional<RecoveryPrompt> respond(const PatchJournal::ParsedJournal& journal,
                                               const std::string& button, FileIo& io = FileIo::system());
  // The message shown when a restore could not be written.
  static RecoveryPrompt rollbackFailure(const PatchJournal::ParsedJournal& journal);
  // Writes every pre-image back and flushes; true on success (journal
  // removed). Takes the journal's lock first and fails if a save holds it.
  static bool rollBack(const PatchJournal::ParsedJournal& journal, FileIo& io = FileIo::system());
  // The same for a caller that holds the lock already.
  static bool rollBack(const PatchJournal::ParsedJournal& journal, const PatchJournal::Lock& held,
                       FileIo& io = FileIo::system());
};

}  // namespace quorin::persistence
