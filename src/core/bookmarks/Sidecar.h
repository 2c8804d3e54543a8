#pragma once

#include <cstdint>
#include <expected>
#include <string>
#include <string_view>
#include <vector>

namespace quorin::bookmarks {

// What a sidecar says about the file it belongs to, to find it again.
struct SidecarFile {
  std::string path;
  uint64_t device = 0;
  uint64_t inode = 0;
  int64_t size = 0;
  int64_t modifiedNanos = 0;  // since the epoch
  std::string headSha256;     // hex SHA-256 of the first 4 KiB; empty when unknown
  bool operator==(const SidecarFile&) const = default;
};

// A bookmark as a sidecar keeps it: its line, a hash of the line's text (to
// find the line again when the file changed) and its note.
struct SidecarBookmark {
  int64_t line = 0;
  uint64_t textHash = 0;
  std::string note;
  bool operator==(const SidecarBookmark&) const = default;
};

// Everything the editor keeps about a file beside it, without touching it.
struct Sidecar {
  SidecarFile file;
  std::vector<SidecarBookmark> bookmarks;  // ascending lines
  std::vector<SidecarBookmark> lost;       // not found again in a changed file
  std::string notes;                       // the incident notes (Markdown)
  int64_t writtenNanos = 0;
  bool operator==(const Sidecar&) const = default;
};

// Why a sidecar was not read; the caller sets the file aside and logs it.
struct SidecarError {
  std::string reason;
  std::string describe() const { return "Not a Quorin sidecar: " + reason; }
};

inline constexpr int kSidecarVersion = 1;

// The sidecar as JSON (nlohmann-json; notes and paths may hold any bytes:
// invalid UTF-8 is replaced on writing). Reading refuses a newer version,
// missing or mistyped fields, negative or unordered lines, and more than
// 10,000,000 bookmarks; unknown keys are ignored.
std::string sidecarToJson(const Sidecar& sidecar);
std::expected<Sidecar, SidecarError> sidecarFromJson(std::string_view json);

// The 64-bit FNV-1a hash of a line's text (without its line break).
uint64_t lineTextHash(std::string_view text);

}  // namespace quorin::bookmarks
