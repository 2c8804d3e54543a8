#pragma once

#include <cstdint>
#include <expected>
#include <filesystem>
#include <functional>
#include <string>

#include "text/DetectedEncoding.h"

namespace quorin::text {

// Documents in any encoding but UTF-8 are edited as a UTF-8 working copy in
// the scratch directory, made by transcodeToUtf8 when the file opens; the
// document remembers the source encoding and Encoder writes it back on save.
// UTF-8 with or without a mark is edited in place.
bool needsWorkingCopy(DetectedEncoding encoding);

// A fresh working-copy file name: a random UUID followed by "-utf8-working.txt".
std::string newWorkingCopyFileName();

// Why a transcoding stopped. describe() renders the text for the user and the log.
struct TranscodeError {
  enum class Kind { openFailed, statFailed, readFailed, writeFailed, cancelled };

  Kind kind;
  std::string path;  // the file concerned; not used by statFailed and cancelled
  int err = 0;       // errno; not used by cancelled

  // "open(<path>) failed: <strerror>", "fstat failed: …", "read(<path>) failed: …",
  // "write(<path>) failed: …", "transcoding cancelled".
  std::string describe() const;
  bool operator==(const TranscodeError&) const = default;
};

inline constexpr size_t kTranscodeBlockBytes = 4 * 1024 * 1024;

struct TranscodeOptions {
  // Bytes read per block (at least 1): memory use is a few times this,
  // whatever the file's size.
  size_t blockBytes = kTranscodeBlockBytes;
  // Called on the calling thread after each block with the source bytes
  // done so far and the total.
  std::function<void(int64_t done, int64_t total)> progress;
  // Polled before each block; returning true stops the transcoding.
  std::function<bool()> isCancelled;
};

struct TranscodeSummary {
  int64_t sourceBytes = 0;  // bytes read from the source, its mark included
  int64_t markBytes = 0;    // the byte-order mark skipped at the start (0 when there was none)
  int64_t utf8Bytes = 0;    // the length of the working copy
  // Malformed or unassigned sequences replaced by U+FFFD. When this is not
  // zero the working copy is not a faithful image of the source, and saving
  // it back would change those bytes: the document should warn first.
  int64_t substitutions = 0;
  bool operator==(const TranscodeSummary&) const = default;
};

// Streams the file open on `sourceFd` (read with pread, so its offset is
// left alone; `sourcePath` names it in errors) from `encoding` into a new
// UTF-8 file at `destination`, created fresh (it must not exist) with mode
// 0600. The source's byte-order mark, if it begins with the encoding's
// mark, is skipped, as the document's byte 0 is the first byte after it.
// Only the bytes present when the call starts are read: a file that shrinks
// meanwhile ends early. The destination is not flushed to disk (it is
// scratch, rebuilt from the source after a crash).
//
// On any error, and when cancelled, the partial destination is removed.
// Blocking; run it off the main thread. Thread-safe in that calls share nothing.
std::expected<TranscodeSummary, TranscodeError> transcodeToUtf8(int sourceFd, const std::string& sourcePath,
                                                                DetectedEncoding encoding,
                                                                const std::filesystem::path& destination,
                                                                const TranscodeOptions& options = {});

// The same for a file given by path, opened read-only for the call.
std::expected<TranscodeSummary, TranscodeError> transcodeFileToUtf8(const std::filesystem::path& source,
                                                                    DetectedEncoding encoding,
                                                                    const std::filesystem::path& destination,
                                                                    const TranscodeOptions& options = {});

}  // namespace quorin::text
