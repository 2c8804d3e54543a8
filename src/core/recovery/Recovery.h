#pragma once

#include <expected>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "recovery/JournalFormat.h"
#include "storage/FileIdentity.h"
#include "storage/PieceTable.h"

namespace quorin::recovery {

// A journal of unsaved edits found in the scratch root.
struct FoundJournal {
  std::filesystem::path path;
  std::optional<ParsedJournal> journal;  // none when it could not be read
  std::string problem;                   // why not
  bool ownerAlive = false;               // its lock is held: a running editor's, not to touch
  int64_t siteCount = 0;
};

// Every "unsaved-*.qrj" of `directory`, oldest first. A journal whose lock
// is held is listed as alive and not read.
std::vector<FoundJournal> listJournals(const std::filesystem::path& directory);

// Whether the file is still the base the journal applies to.
bool baseMatches(const JournalHeader& header, const storage::FileIdentity& identity);

struct ReplayError {
  std::string reason;
  std::string describe() const { return "The journal does not fit its file: " + reason; }
};

// Applies the records, in order, to a table over the base: an ascending run
// of sites in one bulk edit, other records site by site. A site past the
// text's end stops the replay with its record's number.
std::expected<void, ReplayError> replayRecords(storage::PieceTable& table,
                                               const std::vector<JournalRecord>& records);

}  // namespace quorin::recovery
