#include "storage/DiskBackedLineOffsets.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <limits>

#include "base/Errno.h"
#include "base/Log.h"

namespace quorin::storage {
namespace {

// The file is read and written through the mapping as native int64, and its
// layout is little-endian.
static_assert(std::endian::native == std::endian::little,
              "the scratch file layout assumes a little-endian host");

constexpr int64_t kMinimumCapacity = 1024;
constexpr int64_t kEntryBytes = sizeof(int64_t);
// Beyond this the byte length would not fit in off_t after growth by half.
constexpr int64_t kMaximumCapacity = std::numeric_limits<int64_t>::max() / kEntryBytes / 2;
// A single large fallocate can fail where smaller ones succeed (for instance
// on file systems whose emulation or extent allocation balks at one huge
// request), so the second attempt asks for the same space in steps.
constexpr off_t kSecondAttemptStep = off_t{8} << 20;

// Reserves [offset, offset + length) of the file: whole first, then in steps.
// Returns 0 or the error number of the failing attempt.
int preallocate(int fd, off_t offset, off_t length) {
  if (posix_fallocate(fd, offset, length) == 0) return 0;
  for (off_t done = 0; done < length; done += kSecondAttemptStep) {
    if (int err = posix_fallocate(fd, offset + done, std::min(kSecondAttemptStep, length - done))) return err;
  }
  return 0;
}

void logGrowFailure(const char* step, int err) {
  base::logLine(std::string("line-index scratch grow failed (") + step + "): " + base::errnoText(err));
}

}  // namespace

std::expected<std::unique_ptr<DiskBackedLineOffsets>, LineOffsetStorageError> DiskBackedLineOffsets::create(
    std::filesystem::path scratchPath, int64_t capacity) {
  using Kind = LineOffsetStorageError::Kind;
  const int64_t c = std::clamp(capacity, kMinimumCapacity, kMaximumCapacity);
  const off_t bytes = c * kEntryBytes;
  base::UniqueFd fd(::open(scratchPath.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  if (!fd) return std::unexpected(LineOffsetStorageError{Kind::open, errno, scratchPath.string()});
  auto fail = [&](Kind kind, int err) {
    ::unlink(scratchPath.c_str());
    return std::unexpected(LineOffsetStorageError{kind, err, {}});
  };
  if (int err = preallocate(fd.get(), 0, bytes)) return fail(Kind::preallocate, err);
  if (::ftruncate(fd.get(), bytes) != 0) return fail(Kind::ftruncate, errno);
  void* base = ::mmap(nullptr, static_cast<size_t>(bytes), PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
  if (base == MAP_FAILED) return fail(Kind::mmap, errno);
  return std::unique_ptr<DiskBackedLineOffsets>(
      new DiskBackedLineOffsets(std::move(scratchPath), std::move(fd), static_cast<int64_t*>(base), c));
}

DiskBackedLineOffsets::DiskBackedLineOffsets(std::filesystem::path scratchPath, base::UniqueFd fd,
                                             int64_t* base, int64_t capacity)
    : scratchPath_(std::move(scratchPath)), fd_(std::move(fd)), basePtr_(base), capacity_(capacity) {}

DiskBackedLineOffsets::~DiskBackedLineOffsets() {
  ::munmap(basePtr_, static_cast<size_t>(capacity_ * kEntryBytes));
  ::unlink(scratchPath_.c_str());  // the descriptor closes after (member destructor)
}

bool DiskBackedLineOffsets::reserveLocked(int64_t needed) {
  if (needed <= capacity_) return true;
  if (needed > kMaximumCapacity) {
    logGrowFailure("preallocate", EFBIG);
    return false;
  }
  int64_t next = std::max(capacity_, kMinimumCapacity);
  while (next < needed) next = next * 3 / 2;
  const off_t oldBytes = capacity_ * kEntryBytes;
  const off_t newBytes = next * kEntryBytes;
  // fallocate extends the file even when it fails part way; cut it back so
  // the file stays exactly `capacity` entries long.
  auto giveUp = [&](const char* step, int err) {
    (void)::ftruncate(fd_.get(), oldBytes);
    logGrowFailure(step, err);
    return false;
  };
  if (int err = preallocate(fd_.get(), oldBytes, newBytes - oldBytes)) return giveUp("preallocate", err);
  if (::ftruncate(fd_.get(), newBytes) != 0) return giveUp("ftruncate", errno);
  // mremap leaves the old mapping in place when it fails, which is what
  // unmapping and mapping the old length again would achieve, without the
  // window in which the store has no mapping at all.
  void* moved =
      ::mremap(basePtr_, static_cast<size_t>(oldBytes), static_cast<size_t>(newBytes), MREMAP_MAYMOVE);
  if (moved == MAP_FAILED) return giveUp("mmap", errno);
  basePtr_ = static_cast<int64_t*>(moved);
  capacity_ = next;
  return true;
}

int64_t DiskBackedLineOffsets::count() const {
  base::MutexLock guard(lock_);
  return entryCount_;
}

int64_t DiskBackedLineOffsets::capacity() const {
  base::MutexLock guard(lock_);
  return capacity_;
}

std::optional<int64_t> DiskBackedLineOffsets::entry(int64_t index) const {
  base::MutexLock guard(lock_);
  if (index < 0 || index >= entryCount_) return std::nullopt;
  return basePtr_[index];
}

bool DiskBackedLineOffsets::append(std::span<const int64_t> batch) {
  base::MutexLock guard(lock_);
  if (batch.empty()) return true;
  const int64_t needed = entryCount_ + static_cast<int64_t>(batch.size());
  if (!reserveLocked(needed)) return false;
  std::memcpy(basePtr_ + entryCount_, batch.data(), batch.size_bytes());
  entryCount_ = needed;
  return true;
}

bool DiskBackedLineOffsets::splice(int64_t low, int64_t high, std::span<const int64_t> replacement,
                                   int64_t byteDelta) {
  base::MutexLock guard(lock_);
  const auto [l, h] = clampRange(low, high, entryCount_);
  const int64_t added = static_cast<int64_t>(replacement.size());
  const int64_t newCount = entryCount_ - (h - l) + added;
  if (!reserveLocked(newCount)) return false;
  std::memmove(basePtr_ + l + added, basePtr_ + h, static_cast<size_t>((entryCount_ - h) * kEntryBytes));
  if (!replacement.empty()) std::memcpy(basePtr_ + l, replacement.data(), replacement.size_bytes());
  for (int64_t i = l + added; i < newCount; ++i) basePtr_[i] += byteDelta;
  entryCount_ = newCount;
  return true;
}

bool DiskBackedLineOffsets::handOver(LineOffsetStorage& target) {
  if (&target == this) return true;
  base::MutexLock guard(lock_);
  target.removeAll();
  return target.append(std::span<const int64_t>(basePtr_, static_cast<size_t>(entryCount_)));
}

std::vector<int64_t> DiskBackedLineOffsets::entries(int64_t low, int64_t high) const {
  base::MutexLock guard(lock_);
  const auto [l, h] = clampRange(low, high, entryCount_);
  return {basePtr_ + l, basePtr_ + h};
}

void DiskBackedLineOffsets::removeAll() {
  base::MutexLock guard(lock_);
  entryCount_ = 0;
}

}  // namespace quorin::storage
