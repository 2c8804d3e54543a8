#include "storage/MMapWrapper.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "base/Check.h"
#include "base/Transfer.h"
#include "dispatch/Clock.h"
#include "storage/SigbusGuard.h"

namespace quorin::storage {
namespace {

// A shrink is noticed at most this late; it bounds fstat calls to ten a second per file.
constexpr uint64_t kRevalidationIntervalNs = 100'000'000;

// Large copies (whole-text scans read a megabyte at a time) are read with
// pread instead of through the mapping: the kernel copies straight from the
// page cache, so scanning a multi-gigabyte file does not leave it resident in
// our address space, and a file truncated meanwhile is a short read rather
// than a fault. Small reads (drawing, single bytes) stay on the mapping.
constexpr size_t kPreadCopyBytes = size_t{256} << 10;

size_t preadCopy(int fd, int64_t start, size_t count, uint8_t* dest) {
  return base::preadAll(fd, dest, count, static_cast<off_t>(start)).done;
}

}  // namespace

std::expected<std::shared_ptr<MMapWrapper>, MMapError> MMapWrapper::open(const std::string& path) {
  installSigbusHandler();
  // O_NONBLOCK: opening a FIFO by mistake must not hang the editor; it has
  // no effect on regular files.
  base::UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!fd) return std::unexpected(MMapError::openFailed(path, errno));

  struct stat st;
  if (::fstat(fd.get(), &st) != 0) return std::unexpected(MMapError::statFailed(errno));
  if (!S_ISREG(st.st_mode)) {
    return std::unexpected(S_ISDIR(st.st_mode) ? MMapError::openFailed(path, EISDIR)
                                               : MMapError::notRegularFile(path));
  }

  const int64_t size = std::max<int64_t>(st.st_size, 0);
  void* base;
  if (size == 0) {
    base = ::mmap(nullptr, 1, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  } else {
    base = ::mmap(nullptr, static_cast<size_t>(size), PROT_READ, MAP_PRIVATE, fd.get(), 0);
  }
  if (base == MAP_FAILED) return std::unexpected(MMapError::mmapFailed(errno));

  std::shared_ptr<MMapWrapper> wrapper(new MMapWrapper());
  base::MutexLock lock(wrapper->revalidationLock_);  // nobody else sees the wrapper yet: never contended
  wrapper->path_ = path;
  wrapper->fd_ = std::move(fd);
  wrapper->base_ = static_cast<const uint8_t*>(base);
  wrapper->length_ = size;
  wrapper->mappedLength_ = std::max<int64_t>(size, 1);
  wrapper->validatedLength_ = size;
  wrapper->inode_ = st.st_ino;
  wrapper->device_ = st.st_dev;
  wrapper->mtime_ = st.st_mtim;
  wrapper->lastValidationNs_ = 0;
  return wrapper;
}

std::shared_ptr<MMapWrapper> MMapWrapper::anonymousEmpty() {
  void* base = ::mmap(nullptr, 1, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  QUORIN_CHECK(base != MAP_FAILED, "cannot create an anonymous 1-byte mapping");
  std::shared_ptr<MMapWrapper> wrapper(new MMapWrapper());
  wrapper->base_ = static_cast<const uint8_t*>(base);
  wrapper->mappedLength_ = 1;
  return wrapper;
}

MMapWrapper::~MMapWrapper() {
  if (base_ != nullptr) ::munmap(const_cast<uint8_t*>(base_), static_cast<size_t>(mappedLength_));
}

int64_t MMapWrapper::revalidate(bool force) const {
  const uint64_t now = dispatch::monotonicNanos();
  base::MutexLock lock(revalidationLock_);
  if (fd_ && (force || now - lastValidationNs_ >= kRevalidationIntervalNs)) {
    lastValidationNs_ = now;
    struct stat st;
    if (::fstat(fd_.get(), &st) == 0)
      validatedLength_ = std::min<int64_t>(std::max<int64_t>(st.st_size, 0), validatedLength_);
  }
  return validatedLength_;
}

int64_t MMapWrapper::validatedLength() const { return revalidate(false); }

std::span<const uint8_t> MMapWrapper::span(int64_t start, int64_t end) const {
  const int64_t valid = validatedLength();
  if (start < 0 || start >= valid || end <= start) return {};
  return {base_ + start, static_cast<size_t>(std::min(valid, end) - start)};
}

int64_t MMapWrapper::copy(int64_t start, int64_t end, uint8_t* dest) const {
  const auto view = span(start, end);
  if (view.empty()) return 0;
  const size_t copied = view.size() >= kPreadCopyBytes && fd_ ? preadCopy(fd_.get(), start, view.size(), dest)
                                                              : guardedCopy(dest, view.data(), view.size());
  if (copied < view.size()) revalidate(true);
  return static_cast<int64_t>(copied);
}

std::optional<uint8_t> MMapWrapper::byteAt(int64_t offset) const {
  if (offset < 0 || offset >= length_) return std::nullopt;
  uint8_t byte = 0;
  if (copy(offset, offset + 1, &byte) == 0) return uint8_t{0};
  return byte;
}

}  // namespace quorin::storage
