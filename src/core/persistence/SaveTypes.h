#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quorin::persistence {

// One length-preserving region to patch in place: the document's bytes at
// the offset (pre-image) and what replaces them (post-image). The offset
// counts document bytes; the file holds them contentStart bytes further on
// (after a byte-order mark), and only the in-place patch converts.
struct PatchEdit {
  uint64_t docOffsetAtEdit = 0;
  std::string originalBytes;
  std::string insertedBytes;
  bool operator==(const PatchEdit&) const = default;
};

enum class SaveStrategy { inPlacePatch, atomicRewrite };
std::string_view name(SaveStrategy strategy);  // "inPlacePatch", "atomicRewrite"

// Why an in-place patch was not done; the save then rewrites the file. Logged, never shown as an error.
struct InPlaceRejection {
  enum class Kind {
    tooManyRegions,
    regionTooLarge,
    lengthChangingEdit,
    openRdwrFailed,
    fstatFailed,
    identityMismatch,
    flockFailed,
    preReadFailed,
    preImageMismatch,
    journalWriteFailed,
    partialPwrite,
    fsyncFailed,
    prefDisabled,
    noUnsavedEdits,
    nonLocalVolume,
    transcodedDocument
  };
  Kind kind;
  int64_t regionCount = 0;     // tooManyRegions
  int64_t regionCap = 0;       // tooManyRegions
  int64_t editIndex = 0;       // regionTooLarge, lengthChangingEdit
  int64_t originalLength = 0;  // regionTooLarge (the region's size), lengthChangingEdit
  int64_t insertedLength = 0;  // lengthChangingEdit
  int64_t fileOffset = 0;      // preReadFailed, preImageMismatch, partialPwrite
  int64_t bytesDone = 0;       // preReadFailed (read), partialPwrite (written)
  int64_t bytesWanted = 0;     // preReadFailed, partialPwrite
  int err = 0;                 // openRdwrFailed, fstatFailed, flockFailed, fsyncFailed
  std::string detail;          // identityMismatch, journalWriteFailed

  std::string describe() const;
  bool operator==(const InPlaceRejection&) const = default;
};

// Why a save failed; the document keeps its edits, history and save point.
struct SaveError {
  enum class Kind {
    insufficientSpace,
    openFailed,
    writeFailed,
    fsyncFailed,
    renameFailed,
    encodingIncompatible,
    underlying,
    readOnly,
    saveInProgress,
    externallyModified,
    liveFileGrew,
    skippedLiveBytes  // text: how much Catch Up to Live skipped
  };
  Kind kind;
  uint64_t needed = 0, available = 0;  // insufficientSpace
  std::string text;  // openFailed: what; encodingIncompatible: the encoding; underlying: its description
  int err = 0;

  std::string describe() const;
  bool operator==(const SaveError&) const = default;
};

struct SaveOutcome {
  enum class Kind { wrote, noChanges, coalescedIntoInFlightSave };
  Kind kind = Kind::wrote;
  SaveStrategy strategy = SaveStrategy::atomicRewrite;  // wrote
  std::optional<InPlaceRejection> rejection;            // wrote by rewrite: why not in place
  bool operator==(const SaveOutcome&) const = default;
};

}  // namespace quorin::persistence
