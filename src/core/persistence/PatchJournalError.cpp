#include "persistence/PatchJournalError.h"

#include "base/Errno.h"

namespace quorin::persistence {

std::string PatchJournalError::describe() const {
  switch (kind) {
    case Kind::openFailed: return "open(" + path + ") failed for patch journal: " + base::errnoText(err);
    case Kind::writeFailed: return "write failed for patch journal: " + base::errnoText(err);
    case Kind::fsyncFailed: return "fsync failed for patch journal: " + base::errnoText(err);
    case Kind::badMagic: return "patch journal at " + path + " has bad magic";
    case Kind::unsupportedVersion:
      return "patch journal at " + path + " has unsupported version " + std::to_string(version);
    case Kind::truncated:
      return url ? "patch journal truncated at " + url->filename().string() : "patch journal truncated";
    case Kind::badPathEncoding: return "patch journal at " + path + " has invalid path encoding";
  }
  return {};
}

}  // namespace quorin::persistence
