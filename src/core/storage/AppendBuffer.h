#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "base/Mutex.h"
#include "storage/ByteRange.h"

namespace quorin::storage {

// Every byte ever inserted into a document, in insertion order. Bytes are
// only appended, never changed or removed, so a range once handed out stays
// valid for the buffer's whole life (undo and old snapshots rely on that).
//
// Storage grows in fixed blocks that never move: appending never copies what
// is already there, so a replace-all inserting a gigabyte costs one copy of
// that gigabyte, not a series of reallocations.
//
// Thread-safety: every operation takes the buffer's own lock briefly. Shared
// by the piece table and all its snapshots.
class AppendBuffer {
 public:
  AppendBuffer() = default;
  AppendBuffer(const AppendBuffer&) = delete;
  AppendBuffer& operator=(const AppendBuffer&) = delete;

  // Appends bytes and returns the range [start, end) they now occupy.
  ByteRange append(std::string_view bytes);
  // Absent past the end.
  std::optional<uint8_t> byteAt(int64_t offset) const;
  // Copies [start, end) clamped to the bytes held into dest; returns the count copied.
  int64_t copy(int64_t start, int64_t end, uint8_t* dest) const;
  int64_t size() const;

 private:
  static constexpr int64_t kBlockSize = 256 * 1024;

  mutable base::Mutex lock_;
  std::vector<std::unique_ptr<uint8_t[]>> blocks_ GUARDED_BY(lock_);
  int64_t size_ GUARDED_BY(lock_) = 0;
};

}  // namespace quorin::storage
