#pragma once

#include <expected>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "document/DocumentTypes.h"
#include "persistence/SaveCoordinator.h"
#include "storage/FileIdentity.h"
#include "storage/OriginalBuffer.h"
#include "storage/PieceTableSnapshot.h"
#include "storage/ScratchDirectory.h"
#include "text/DetectedEncoding.h"

namespace quorin::document {

// What a document knows about the file behind its text: how it was found on
// disk (identity, encoding, mark) and, when it is not UTF-8, the UTF-8
// working copy the document edits instead. Replaced whole when the file is
// read again; owned by the document, main thread only.
struct SourceFile {
  std::optional<storage::FileIdentity> identity;
  std::optional<text::DetectedEncoding> transcodedFrom;  // set when the text is a working copy
  bool hadByteOrderMark = false;                         // of a transcoded file (a UTF-8 mark stays mapped)
  int64_t substitutions = 0;                             // characters transcoding replaced by U+FFFD
  std::unique_ptr<storage::ScratchDirectory> workingScratch;
  std::optional<std::filesystem::path> workingCopy;

  bool isTranscoded() const { return transcodedFrom.has_value(); }
  // Writes text back in the file's own encoding, mark included; null for a
  // mapped UTF-8 file, whose bytes go out as they are.
  persistence::SaveEncoder encoder() const;
};

// The file's text as the document edits it, and what was learnt reading it.
struct LoadedText {
  std::shared_ptr<const storage::OriginalBuffer> original;
  SourceFile source;
};

// Maps `path` (UTF-8 as it is) or transcodes it into a UTF-8 working copy
// (any other encoding, `chosen` or detected). Blocking; main thread.
std::expected<LoadedText, OpenError> loadText(const std::string& path,
                                              std::optional<text::DetectedEncoding> chosen,
                                              const OpenOptions& options);

// The snapshot's UTF-8 text as a new working copy in `directory`, so that a
// transcoded document can go on over exactly the text it just saved. Any
// thread; absent (and nothing left behind) when it could not be written.
std::optional<std::filesystem::path> writeWorkingCopy(const storage::PieceTableSnapshot& text,
                                                      const std::filesystem::path& directory);

}  // namespace quorin::document
