#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "storage/OriginalBuffer.h"
#include "storage/PieceTable.h"
#include "support/TempDir.h"

namespace quorin::testing {

inline std::shared_ptr<storage::MMapWrapper> mapFile(const std::filesystem::path& path) {
  auto mapped = storage::MMapWrapper::open(path.string());
  if (!mapped) throw std::runtime_error(mapped.error().describe());
  return *mapped;
}

inline std::shared_ptr<const storage::OriginalBuffer> bufferOver(
    const TempDir& dir, std::string_view bytes,
    std::optional<text::DetectedEncoding> encoding = std::nullopt) {
  return storage::OriginalBuffer::make(mapFile(dir.write("file.txt", bytes)), encoding);
}

inline std::string wholeText(const storage::PieceTableSnapshot& snapshot) {
  return snapshot.readBytes({0, snapshot.totalLength()}).value_or("");
}

inline std::string wholeText(const storage::PieceTable& table) { return wholeText(table.snapshot()); }

}  // namespace quorin::testing
