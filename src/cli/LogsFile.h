#pragma once

#include <cstdint>
#include <expected>
#include <memory>
#include <ostream>
#include <string>

#include "logs/LogIndex.h"
#include "logs/LogIndexData.h"
#include "storage/InMemoryLineIndex.h"
#include "storage/OriginalBuffer.h"
#include "storage/PieceTable.h"
#include "storage/ScratchDirectory.h"

namespace quorin::cli {

// A file opened as the editor opens it, for the commands that read it as a
// log: its bytes (a UTF-8 working copy for other encodings) and a complete
// line index.
struct OpenedLog {
  std::unique_ptr<storage::ScratchDirectory> scratch;  // the working copy and a big index, if any
  std::shared_ptr<const storage::OriginalBuffer> original;
  std::shared_ptr<storage::PieceTable> table;
  std::shared_ptr<storage::InMemoryLineIndex> lines;
  // The year yearless timestamps end in: the file's modification year.
  int32_t modificationYear = 1970;

  logs::LogSource source() const { return {table->snapshot(), lines->snapshot()}; }
};

// Opens `path` and indexes its lines, showing progress on `err`. The error
// is the text to print; an interrupt gives an empty one (the caller exits
// with kExitInterrupted).
std::expected<OpenedLog, std::string> openLog(const std::string& path, std::ostream& err);

// The log index of an opened file, showing progress on `err`; incomplete
// when interrupted.
logs::LogIndexData indexLog(const OpenedLog& log, std::ostream& err);

}  // namespace quorin::cli
