#pragma once

#include <expected>
#include <filesystem>
#include <memory>

#include "base/Mutex.h"
#include "base/UniqueFd.h"
#include "storage/LineOffsetStorage.h"
#include "storage/LineOffsetStorageError.h"

namespace quorin::storage {

// Line starts in a memory-mapped scratch file, so that tens of millions of
// them can be paged out by the kernel instead of weighing on memory.
//
// File layout: a flat array of little-endian int64 entries, entry i at byte
// 8 * i, no header; the file is `capacity` entries long and bytes past the
// entries in use mean nothing. Space is preallocated before it is mapped so
// that a store through the mapping never meets a full disk (which would be a
// SIGBUS rather than an error).
//
// Growth (when an append or splice needs more than `capacity` entries) is by
// half again each time. A growth failure is logged and the write that needed
// the room is not done (it returns false); the store carries on, consistent,
// at its old capacity.
//
// Lifetime: owns the scratch file; destruction unmaps, closes and deletes it.
// Thread-safety: see LineOffsetStorage.
class DiskBackedLineOffsets final : public LineOffsetStorage {
 public:
  // Creates (truncating) `scratchPath` with mode 0600, sized for
  // max(capacity, 1024) entries. On failure nothing is left behind.
  static std::expected<std::unique_ptr<DiskBackedLineOffsets>, LineOffsetStorageError> create(
      std::filesystem::path scratchPath, int64_t capacity);

  ~DiskBackedLineOffsets() override;
  DiskBackedLineOffsets(const DiskBackedLineOffsets&) = delete;
  DiskBackedLineOffsets& operator=(const DiskBackedLineOffsets&) = delete;

  int64_t count() const override;
  std::optional<int64_t> entry(int64_t index) const override;
  bool append(std::span<const int64_t> batch) override;
  bool splice(int64_t low, int64_t high, std::span<const int64_t> replacement, int64_t byteDelta) override;
  bool handOver(LineOffsetStorage& target) override;
  std::vector<int64_t> entries(int64_t low, int64_t high) const override;
  void removeAll() override;

  int64_t capacity() const;
  const std::filesystem::path& scratchPath() const { return scratchPath_; }

 private:
  DiskBackedLineOffsets(std::filesystem::path scratchPath, base::UniqueFd fd, int64_t* base,
                        int64_t capacity);
  // Makes room for `needed` entries; false (logged) when it could not.
  bool reserveLocked(int64_t needed) REQUIRES(lock_);

  mutable base::Mutex lock_;
  const std::filesystem::path scratchPath_;
  const base::UniqueFd fd_;
  int64_t* basePtr_ GUARDED_BY(lock_) PT_GUARDED_BY(lock_);
  int64_t capacity_ GUARDED_BY(lock_);
  int64_t entryCount_ GUARDED_BY(lock_) = 0;
};

}  // namespace quorin::storage
