#pragma once

#include <cstdint>
#include <expected>
#include <string>
#include <string_view>

#include "storage/LineIndexOptions.h"
#include "storage/PieceTableSnapshot.h"

namespace quorin::storage {

// How much of a file above the fast-open threshold a document covers, and
// whether it may be edited.
enum class LargeFileOpenMode { windowedSlice, tail, wholeFileVirtual, readOnlyInspect };

std::string_view cardTitle(LargeFileOpenMode mode);
std::string_view cardDescription(LargeFileOpenMode mode);
bool acceptsEdits(LargeFileOpenMode mode);

// Files above this many bytes are offered the four open modes first. A
// gigabyte: below it the whole file opens as fast as a small one, so asking
// would only be in the way; above it a slice or the tail saves real time and
// memory. The user changes it under kFastOpenThresholdKey.
inline constexpr int64_t kDefaultFastOpenThresholdBytes = int64_t{1} << 30;
inline constexpr std::string_view kFastOpenThresholdKey = "QuorinFastOpenThresholdBytes";

// A megabyte, for the slice and tail fields.
inline constexpr int64_t kOpenModeMegabyte = 1'048'576;

// The mode chosen in the dialog with its fields (megabytes).
struct LargeFileOpenRequest {
  LargeFileOpenMode mode = LargeFileOpenMode::wholeFileVirtual;
  int64_t sliceStartMB = 0;
  int64_t sliceEndMB = 0;
  int64_t tailMB = 0;
};

// Why a request was refused; describe() is the alert's text.
struct OpenModeRejection {
  enum class Kind { sliceEndNotAfterStart, sliceStartPastEnd, tailTooSmall };
  Kind kind;
  int64_t fileSizeMB = 0;  // sliceStartPastEnd: the file's size, rounded up

  std::string describe() const;
  bool operator==(const OpenModeRejection&) const = default;
};

// Checks the selected mode's fields against a file of `fileSize` bytes.
std::expected<void, OpenModeRejection> validateOpenRequest(const LargeFileOpenRequest& request,
                                                           int64_t fileSize);

// The dialog's explanation: "<size> — larger than the <threshold> fast-open threshold".
std::string openModeExplanation(int64_t fileSize, int64_t thresholdBytes);

// The line index window for a validated request, snapped to whole lines: a
// slice or tail that begins mid-line starts at the next line, and a slice
// that ends mid-line runs on to the end of that line. Each snap looks at most
// a megabyte ahead, so a file without line breaks is cut where asked.
LineIndexWindow openModeWindow(const LargeFileOpenRequest& request, const PieceTableSnapshot& text,
                               uint8_t terminator);

}  // namespace quorin::storage
