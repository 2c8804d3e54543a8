#include "app/UnsavedRecovery.h"

#include <QFileInfo>
#include <filesystem>
#include <fstream>

#include "app/DocumentTab.h"
#include "app/MainWindow.h"
#include "base/ByteCount.h"
#include "base/Log.h"
#include "recovery/Recovery.h"
#include "storage/ScratchDirectory.h"

namespace quorin::app {
namespace {

namespace fs = std::filesystem;

constexpr int kMostAttempts = 2;

// Restores begun for a journal (a crash while restoring leaves the count up).
int attempts(const fs::path& journal) {
  std::ifstream in(journal.string() + ".attempts");
  int count = 0;
  in >> count;
  return count;
}

void setAttempts(const fs::path& journal, int count) {
  if (count == 0) {
    std::error_code ec;
    fs::remove(journal.string() + ".attempts", ec);
    return;
  }
  std::ofstream(journal.string() + ".attempts") << count;
}

void forget(const fs::path& journal) {
  std::error_code ec;
  fs::remove(journal, ec);
  setAttempts(journal, 0);
}

void setAside(const fs::path& journal, const std::string& why) {
  std::error_code ec;
  const fs::path corrupt = journal.parent_path() / "corrupt";
  fs::create_directories(corrupt, ec);
  fs::rename(journal, corrupt / journal.filename(), ec);
  setAttempts(journal, 0);
  base::logLine("recovery journal " + journal.string() + " set aside: " + why);
}

std::string editsText(int64_t edits) {
  return base::groupDigits(edits) + (edits == 1 ? " unsaved edit" : " unsaved edits");
}

}  // namespace

int examineUnsavedJournals(MainWindow* window,
                           const std::function<QString(const persistence::RecoveryPrompt&)>& ask) {
  const auto root = storage::ScratchDirectory::root();
  if (!root) return 0;
  int offered = 0;
  for (const recovery::FoundJournal& found : recovery::listJournals(*root)) {
    if (found.ownerAlive) continue;
    if (!found.journal) {
      setAside(found.path, found.problem);
      ask({"A crash-recovery journal could not be read",
           found.problem + "\nIt was moved to " + (found.path.parent_path() / "corrupt").string() + ".",
           {"OK"},
           0});
      continue;
    }
    const recovery::JournalHeader& header = found.journal->header;
    if (found.siteCount == 0) {
      forget(found.path);
      continue;
    }
    if (attempts(found.path) >= kMostAttempts) {
      setAside(found.path, "restoring it did not finish twice");
      ask({"Unsaved edits were set aside",
           "Restoring the unsaved edits of “" + header.title +
               "” did not finish twice, so they are no longer offered. " + "The journal was moved to " +
               (found.path.parent_path() / "corrupt").string() + ".",
           {"OK"},
           0});
      continue;
    }
    ++offered;
    const std::string name = header.untitled
                                 ? header.title
                                 : QFileInfo(QString::fromStdString(header.path)).fileName().toStdString();
    const auto identity = header.untitled ? std::nullopt : storage::FileIdentity::ofPath(header.path);
    const bool baseHere = header.untitled || (identity && recovery::baseMatches(header, *identity));
    const bool whole = header.openMode == "wholeFileVirtual";
    if (!baseHere || !whole) {
      const std::string why =
          !baseHere ? "“" + name + "” changed after Quorin quit with " + editsText(found.siteCount) + "."
                    : "“" + name + "” was open as a part of the file when Quorin quit with " +
                          editsText(found.siteCount) + ".";
      const QString choice =
          ask({why,
               "They cannot be applied here. Keep them to write the edited text to a new file with "
               "quorin-cli recover --restore-to PATH " +
                   found.path.string() + ", or discard them.",
               {"Keep", "Discard"},
               0});
      if (choice == QLatin1String("Discard")) forget(found.path);
      continue;
    }
    const QString choice = ask({"Quorin quit before “" + name + "” was saved.",
                                "Restore its " + editsText(found.siteCount) + "?",
                                {"Restore", "Discard", "Later"},
                                0});
    if (choice == QLatin1String("Discard")) {
      forget(found.path);
      continue;
    }
    if (choice != QLatin1String("Restore")) continue;
    setAttempts(found.path, attempts(found.path) + 1);
    if (header.untitled) {
      window->newDocument();
    } else if (const auto problem = window->openFileWithMode(QString::fromStdString(header.path), {})) {
      ask({"The unsaved edits could not be restored", problem->toStdString(), {"OK"}, 0});
      setAttempts(found.path, 0);
      continue;
    }
    DocumentTab* tab = window->currentTab();
    if (const auto problem = tab->applyRecoveredEdits(found.journal->records)) {
      ask({"The unsaved edits could not all be restored", problem->toStdString(), {"OK"}, 0});
    }
    // The tab journals the restored edits anew; this journal has done its work.
    forget(found.path);
  }
  return offered;
}

}  // namespace quorin::app
