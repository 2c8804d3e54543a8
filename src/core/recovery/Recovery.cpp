#include "recovery/Recovery.h"

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "base/UniqueFd.h"

namespace quorin::recovery {

std::vector<FoundJournal> listJournals(const std::filesystem::path& directory) {
  std::vector<std::pair<std::filesystem::file_time_type, FoundJournal>> found;
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator(directory, ec)) {
    const std::string name = entry.path().filename().string();
    if (!name.starts_with("unsaved-") || !name.ends_with(".qrj")) continue;
    FoundJournal journal{.path = entry.path()};
    base::UniqueFd fd(::open(entry.path().c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.valid()) continue;  // gone meanwhile
    if (::flock(fd.get(), LOCK_SH | LOCK_NB) != 0) {
      journal.ownerAlive = true;
    } else {
      std::ifstream in(entry.path(), std::ios::binary);
      std::ostringstream bytes;
      bytes << in.rdbuf();
      auto parsed = parseJournal(bytes.str());
      if (parsed) {
        for (const auto& record : parsed->records) journal.siteCount += static_cast<int64_t>(record.size());
        journal.journal = std::move(*parsed);
      } else {
        journal.problem = parsed.error().describe();
      }
    }
    found.emplace_back(entry.last_write_time(ec), std::move(journal));
  }
  std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<FoundJournal> out;
  for (auto& [time, journal] : found) out.push_back(std::move(journal));
  return out;
}

bool baseMatches(const JournalHeader& h, const storage::FileIdentity& id) {
  return h.device == id.device && h.inode == id.inode && h.size == id.size &&
         h.mtimeSeconds == id.mtimeSeconds && h.mtimeNanos == id.mtimeNanoseconds;
}

std::expected<void, ReplayError> replayRecords(storage::PieceTable& table,
                                               const std::vector<JournalRecord>& records) {
  for (size_t r = 0; r < records.size(); ++r) {
    const JournalRecord& record = records[r];
    const auto unfit = [&] {
      return std::unexpected(ReplayError{"record " + std::to_string(r + 1) + " of " +
                                         std::to_string(records.size()) + " lies past the text's end"});
    };
    bool ascending = record.size() > 1;
    for (size_t i = 1; ascending && i < record.size(); ++i) {
      ascending =
          record[i].offset >= record[i - 1].offset + static_cast<int64_t>(record[i - 1].inserted.size());
    }
    if (ascending) {
      // Back to offsets in the text before the record, for one bulk edit.
      std::vector<storage::PieceTable::BulkEditSite> sites;
      sites.reserve(record.size());
      int64_t shift = 0;
      for (const JournalSite& site : record) {
        const int64_t start = site.offset - shift;
        sites.push_back({{start, start + site.removed}, site.inserted});
        shift += static_cast<int64_t>(site.inserted.size()) - site.removed;
      }
      if (sites.back().range.end > table.totalLength()) return unfit();
      table.applyBulkEdits(sites);
      continue;
    }
    for (const JournalSite& site : record) {
      if (site.offset + site.removed > table.totalLength()) return unfit();
      table.replace({site.offset, site.offset + site.removed}, site.inserted);
    }
  }
  return {};
}

}  // namespace quorin::recovery
