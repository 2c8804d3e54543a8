#pragma once

#include <sys/types.h>
#include <time.h>

#include <cstdint>
#include <expected>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "base/Mutex.h"
#include "base/UniqueFd.h"
#include "storage/MMapError.h"

namespace quorin::storage {

// A whole file mapped read-only and private; the file's bytes are never read
// into memory as a whole.
//
// The mapping shows the file as it is on disk, so a file truncated by another
// process loses pages under us. `validatedLength` is a one-way ratchet on the
// bytes still known to exist: it is re-checked with fstat at most every
// 100 ms and only ever decreases (a file that grows back is the tail
// follower's business, which reopens). Copies out of the mapping go through
// guardedCopy, so even a shrink not yet noticed cannot kill the process.
//
// Lifetime: shared by the original buffer, the piece table and every
// snapshot; the last owner unmaps and closes the descriptor. Thread-safety:
// every method may be called from any thread; the revalidation lock is the
// innermost lock of the system.
class MMapWrapper {
 public:
  // Opens, measures and maps `path`. An empty file gets a private anonymous
  // 1-byte mapping so that it still has a valid base address.
  static std::expected<std::shared_ptr<MMapWrapper>, MMapError> open(const std::string& path);

  // A mapping with no file behind it, for untitled documents: length 0.
  static std::shared_ptr<MMapWrapper> anonymousEmpty();

  ~MMapWrapper();
  MMapWrapper(const MMapWrapper&) = delete;
  MMapWrapper& operator=(const MMapWrapper&) = delete;

  const std::string& path() const { return path_; }
  // Identity at mapping time; none of these change afterwards.
  int64_t length() const { return length_; }
  uint64_t inode() const { return inode_; }
  uint64_t device() const { return device_; }
  timespec mtime() const { return mtime_; }
  int fd() const { return fd_.get(); }
  const uint8_t* base() const { return base_; }
  int64_t mappedLength() const { return mappedLength_; }

  // The leading bytes still known to exist, after an opportunistic size check.
  int64_t validatedLength() const;

  // A raw view of file bytes [start, end) clamped to the validated length;
  // empty when start is not below it or end is not past start. No copy. The
  // view's pages can still vanish if the file shrinks later: read it through
  // guardedCopy (or use copy()).
  std::span<const uint8_t> span(int64_t start, int64_t end) const;

  // Copies file bytes [start, end), clamped to the validated length, into
  // dest (which must have room for end − start bytes). Returns the number of
  // bytes copied; fewer than asked when the file has shrunk, in which case
  // the validated length is re-checked at once.
  int64_t copy(int64_t start, int64_t end, uint8_t* dest) const;

  // One file byte: absent at or past `length`, NUL at or past the validated
  // length (the file shrank behind our back; reading NUL beats faulting).
  std::optional<uint8_t> byteAt(int64_t offset) const;

 private:
  MMapWrapper() = default;
  int64_t revalidate(bool force) const;

  std::string path_;
  int64_t length_ = 0;
  uint64_t inode_ = 0;
  uint64_t device_ = 0;
  timespec mtime_{};
  base::UniqueFd fd_;
  const uint8_t* base_ = nullptr;
  int64_t mappedLength_ = 0;

  mutable base::Mutex revalidationLock_;
  mutable int64_t validatedLength_ GUARDED_BY(revalidationLock_) = 0;
  mutable uint64_t lastValidationNs_ GUARDED_BY(revalidationLock_) = 0;
};

}  // namespace quorin::storage
