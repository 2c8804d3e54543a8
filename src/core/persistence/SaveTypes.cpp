#include "persistence/SaveTypes.h"

#include "base/Errno.h"

namespace quorin::persistence {
namespace {

std::string n(int64_t v) { return std::to_string(v); }

}  // namespace

std::string_view name(SaveStrategy strategy) {
  return strategy == SaveStrategy::inPlacePatch ? "inPlacePatch" : "atomicRewrite";
}

std::string InPlaceRejection::describe() const {
  using K = Kind;
  switch (kind) {
    case K::tooManyRegions:
      return "too many edited regions (" + n(regionCount) + " \u2265 " + n(regionCap) + ")";
    case K::regionTooLarge:
      return "edit #" + n(editIndex) + " is " + n(originalLength) + "B \u2014 over the in-place region cap";
    case K::lengthChangingEdit:
      return "edit #" + n(editIndex) + " is not length-preserving (original " + n(originalLength) +
             "B, inserted " + n(insertedLength) + "B)";
    case K::openRdwrFailed: return "open(O_RDWR) failed: " + base::errnoText(err);
    case K::fstatFailed: return "fstat failed: " + base::errnoText(err);
    case K::identityMismatch: return "file identity changed since open: " + detail;
    case K::flockFailed: return "flock failed: " + base::errnoText(err);
    case K::preReadFailed:
      return "pre-read at offset " + n(fileOffset) + " returned " + n(bytesDone) + " of " + n(bytesWanted) +
             " bytes";
    case K::preImageMismatch:
      return "on-disk bytes at offset " + n(fileOffset) + " don't match the edit's pre-image";
    case K::journalWriteFailed: return "patch journal write failed: " + detail;
    case K::partialPwrite:
      return "partial pwrite at offset " + n(fileOffset) + ": " + n(bytesDone) + " of " + n(bytesWanted) +
             " bytes";
    case K::fsyncFailed: return "fsync failed: " + base::errnoText(err);
    case K::prefDisabled: return "in-place patch disabled in preferences";
    case K::noUnsavedEdits: return "no unsaved edits";
    case K::nonLocalVolume: return "file is not on a local volume";
    case K::transcodedDocument: return "document is a transcoded working copy (non-UTF-8 source)";
  }
  return {};
}

std::string SaveError::describe() const {
  using K = Kind;
  switch (kind) {
    case K::insufficientSpace:
      return "not enough disk space: need " + std::to_string(needed) + " bytes, " +
             std::to_string(available) + " available";
    case K::openFailed: return "open(" + text + ") failed for save: " + base::errnoText(err);
    case K::writeFailed: return "write failed during save: " + base::errnoText(err);
    case K::fsyncFailed: return "fsync failed during save: " + base::errnoText(err);
    case K::renameFailed: return "rename failed during save: " + base::errnoText(err);
    case K::encodingIncompatible: return "content contains characters that " + text + " cannot represent";
    case K::underlying: return "save failed: " + text;
    case K::readOnly: return "document is read-only \u2014 cannot save";
    case K::saveInProgress: return "a save is already in progress \u2014 try again when it finishes";
    case K::externallyModified:
      return "the file changed on disk since it was opened \u2014 resolve the external change (Reload or "
             "Keep Mine), "
             "then save again";
    case K::liveFileGrew:
      return "the file has grown since it was opened in tail mode \u2014 use Save As to keep your edits in a "
             "new file";
    case K::skippedLiveBytes:
      return "the file holds " + text +
             " that Catch Up to Live skipped \u2014 saving would delete them; use Save As to write only the "
             "text "
             "shown here";
  }
  return {};
}

}  // namespace quorin::persistence
