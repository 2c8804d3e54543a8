#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string_view>

#include "base/Transfer.h"
#include "base/UniqueFd.h"

namespace quorin::persistence {

// The system calls that saving and recovery make on the user's files,
// behind an interface so tests can make any one of them fail on demand (a
// full disk, a read-only volume, an interrupted write) — conditions a test
// cannot otherwise produce, least of all when it runs as root. Each call
// returns what the system call returns and leaves errno set the same way.
//
// Thread-safety: the system implementation is stateless; fakes decide.
class FileIo {
 public:
  virtual ~FileIo() = default;
  virtual int open(const char* path, int flags, mode_t mode) = 0;
  virtual ssize_t write(int fd, const void* data, size_t size) = 0;
  virtual ssize_t pwrite(int fd, const void* data, size_t size, off_t offset) = 0;
  virtual ssize_t pread(int fd, void* data, size_t size, off_t offset) = 0;
  virtual int fsync(int fd) = 0;
  virtual int close(int fd) = 0;
  virtual int fstat(int fd, struct stat* st) = 0;
  virtual int fchmod(int fd, mode_t mode) = 0;
  virtual int fchown(int fd, uid_t owner, gid_t group) = 0;
  virtual int flock(int fd, int operation) = 0;
  virtual int rename(const char* from, const char* to) = 0;
  // In-kernel copy of `size` bytes from `in` at *inOffset (advanced) to `out`
  // at its current position; fails with EXDEV, ENOSYS or EINVAL where the
  // kernel or the file systems cannot, and the caller then copies itself.
  virtual ssize_t copyFileRange(int in, off_t* inOffset, int out, size_t size);

  // The real thing.
  static FileIo& system();
};

// Opens through the seam; the descriptor is closed when the result goes.
inline base::UniqueFd openFd(FileIo& io, const char* path, int flags, mode_t mode = 0) {
  return base::UniqueFd(io.open(path, flags, mode));
}

// Whole transfers through the seam (interruptions retried, short transfers
// continued): see base::Transfer for how they stop early.
base::Transfer writeAll(FileIo& io, int fd, std::string_view bytes);
base::Transfer preadAll(FileIo& io, int fd, void* dest, size_t size, off_t offset);
base::Transfer pwriteAll(FileIo& io, int fd, std::string_view bytes, off_t offset);

// Flushes a descriptor to stable storage. Linux's fsync already asks the
// device to flush its cache (what other systems need a special control
// for), so there is nothing to fall back from.
inline int durableFlush(FileIo& io, int fd) { return io.fsync(fd); }

// Flushes a directory so that the names just created or renamed in it
// survive a crash. Best effort: a failure changes nothing the caller could act on.
void flushDirectory(FileIo& io, const char* directory);

}  // namespace quorin::persistence
