#pragma once

#include <expected>
#include <filesystem>
#include <string>
#include <string_view>

#include "persistence/FileIo.h"

namespace quorin::persistence {

// Why a small file (a report, a sidecar, an export) was not written.
struct SmallFileError {
  std::string operation;  // the system call that failed
  std::string path;
  int error = 0;
  std::string describe() const;
};

// Writes `text` to a new file beside `path`, flushes it, renames it over
// `path` and flushes the directory: the file is replaced whole or not at
// all, and the rename survives a power cut. The temporary file is removed on
// failure. For files the program reads whole; the document's own text goes
// through the save coordinator.
std::expected<void, SmallFileError> writeFileAtomically(const std::filesystem::path& path,
                                                        std::string_view text, FileIo& io = FileIo::system());

}  // namespace quorin::persistence
