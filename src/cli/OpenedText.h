#pragma once

#include <expected>
#include <memory>
#include <string>

#include "storage/OriginalBuffer.h"
#include "storage/PieceTable.h"
#include "storage/ScratchDirectory.h"

namespace quorin::cli {

// A file's bytes as the editor sees them: the file itself, or the UTF-8
// working copy of a file in another encoding.
struct OpenedText {
  std::unique_ptr<storage::ScratchDirectory> scratch;  // the working copy, if any, and room for an index
  std::shared_ptr<const storage::OriginalBuffer> original;
  std::shared_ptr<storage::PieceTable> table;
};

// Opens `path` read-only. A scratch directory is made when a working copy
// is needed, or always with `wantScratch` (for a big line index); failing
// to make one is an error only in the first case.
std::expected<OpenedText, std::string> openText(const std::string& path, bool wantScratch = false);

}  // namespace quorin::cli
