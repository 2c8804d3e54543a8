#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace quorin::persistence {

// Why a patch journal could not be written or read; describe() renders the
// text for the log and the user.
struct PatchJournalError {
  enum class Kind {
    openFailed,
    writeFailed,
    fsyncFailed,
    badMagic,
    unsupportedVersion,
    truncated,
    badPathEncoding
  };
  Kind kind;
  std::string path;      // openFailed: the journal's path; the reading errors: the journal's
  int err = 0;           // openFailed, writeFailed, fsyncFailed
  uint32_t version = 0;  // unsupportedVersion
  std::optional<std::filesystem::path> url;  // truncated, when known

  static PatchJournalError openFailed(std::string path, int err) {
    return make(Kind::openFailed, std::move(path), err);
  }
  static PatchJournalError writeFailed(int err) { return make(Kind::writeFailed, {}, err); }
  static PatchJournalError fsyncFailed(int err) { return make(Kind::fsyncFailed, {}, err); }
  static PatchJournalError badMagic(const std::filesystem::path& url) {
    return make(Kind::badMagic, url.string(), 0);
  }
  static PatchJournalError unsupportedVersion(const std::filesystem::path& url, uint32_t version) {
    PatchJournalError e = make(Kind::unsupportedVersion, url.string(), 0);
    e.version = version;
    return e;
  }
  static PatchJournalError truncated(std::optional<std::filesystem::path> url) {
    PatchJournalError e = make(Kind::truncated, {}, 0);
    e.url = std::move(url);
    return e;
  }
  static PatchJournalError badPathEncoding(const std::filesystem::path& url) {
    return make(Kind::badPathEncoding, url.string(), 0);
  }

  std::string describe() const;
  bool operator==(const PatchJournalError&) const = default;

 private:
  static PatchJournalError make(Kind kind, std::string path, int err) {
    return PatchJournalError{.kind = kind, .path = std::move(path), .err = err};
  }
};

}  // namespace quorin::persistence
