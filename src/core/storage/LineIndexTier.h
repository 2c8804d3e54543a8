#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "storage/LineOffsetStorage.h"

namespace quorin::storage {

// Where a document's line starts are kept. Files big enough for tens of
// millions of lines go to a memory-mapped scratch file (disk-backed); all
// others stay in memory.
struct LineIndexTier {
  enum class Kind { diskBacked, inMemory };

  Kind kind = Kind::inMemory;
  std::filesystem::path scratchPath;  // diskBacked only
  int64_t initialCapacity = 0;        // diskBacked only, in entries

  static LineIndexTier inMemory() { return {}; }
  static LineIndexTier diskBacked(std::filesystem::path scratchPath, int64_t initialCapacity) {
    return {Kind::diskBacked, std::move(scratchPath), initialCapacity};
  }

  bool operator==(const LineIndexTier&) const = default;
};

// The tier for a document of `documentLength` bytes. Lines are estimated at
// 80 bytes each; from 20,000,000 estimated lines on, and only when there is a
// scratch directory to put it in, the index goes to "lineindex.bin" there
// with 20% headroom.
LineIndexTier chooseLineIndexTier(int64_t documentLength,
                                  std::optional<std::filesystem::path> scratchDirectory);

// A store for a tier. A disk-backed store that cannot be created is replaced
// by an in-memory one, and `fallbackReason` says why so the index can name it.
struct LineOffsetStore {
  std::unique_ptr<LineOffsetStorage> storage;
  std::optional<std::string> fallbackReason;
};

LineOffsetStore makeLineOffsetStorage(const LineIndexTier& tier);

}  // namespace quorin::storage
