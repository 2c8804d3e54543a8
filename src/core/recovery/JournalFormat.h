#pragma once

#include <cstdint>
#include <expected>
#include <string>
#include <string_view>
#include <vector>

namespace quorin::recovery {

// What a journal says about the document it belongs to.
struct JournalHeader {
  std::string path;  // empty for an untitled document
  std::string title;
  uint64_t device = 0;
  uint64_t inode = 0;
  int64_t size = 0;
  int64_t mtimeSeconds = 0;
  int64_t mtimeNanos = 0;
  std::string encoding;    // the file's own, as DetectedEncoding names it
  std::string lineEnding;  // "lf", "crlf", "cr"
  std::string openMode;    // as LargeFileOpenMode's card names it
  int64_t windowStart = 0;
  int64_t windowEnd = -1;  // -1: the whole file
  bool untitled = false;
  int64_t pid = 0;
  int64_t createdSeconds = 0;  // since the epoch
  bool operator==(const JournalHeader&) const = default;
};

// One edit: at `offset` (in the text as the sites before it left it),
// `removed` bytes went and `inserted` came.
struct JournalSite {
  int64_t offset = 0;
  int64_t removed = 0;
  std::string inserted;
  bool operator==(const JournalSite&) const = default;
};
using JournalRecord = std::vector<JournalSite>;

struct ParsedJournal {
  JournalHeader header;
  std::vector<JournalRecord> records;
  bool torn = false;  // bytes after the last whole record (a write the process died in)
};

// Why a journal could not be read at all; describe() is the text to show.
struct JournalError {
  std::string reason;
  std::string describe() const { return "Not a Quorin recovery journal: " + reason; }
};

inline constexpr uint32_t kJournalVersion = 1;
// A record larger than this is not believed (a corrupt length).
inline constexpr uint64_t kMaxRecordBytes = uint64_t{1} << 40;

// The magic, version and header; then records.
std::string encodeJournalHeader(const JournalHeader& header);
// One record: u64 payload length, u32 CRC-32C of the payload, the payload. `sites` as views to avoid a copy
// of big insertions.
struct SiteView {
  int64_t offset = 0;
  int64_t removed = 0;
  std::string_view inserted;
};
std::string encodeRecord(const std::vector<SiteView>& sites);

// Reads a whole journal; records stop at the first one whose length or
// checksum does not hold.
std::expected<ParsedJournal, JournalError> parseJournal(std::string_view bytes);

}  // namespace quorin::recovery
