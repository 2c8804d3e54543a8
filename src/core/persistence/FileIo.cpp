#include "persistence/FileIo.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdio>

namespace quorin::persistence {
namespace {

class SystemFileIo final : public FileIo {
 public:
  int open(const char* path, int flags, mode_t mode) override {
    return ::open(path, flags | O_CLOEXEC, mode);
  }
  ssize_t write(int fd, const void* data, size_t size) override { return ::write(fd, data, size); }
  ssize_t pwrite(int fd, const void* data, size_t size, off_t offset) override {
    return ::pwrite(fd, data, size, offset);
  }
  ssize_t pread(int fd, void* data, size_t size, off_t offset) override {
    return ::pread(fd, data, size, offset);
  }
  int fsync(int fd) override { return ::fsync(fd); }
  int close(int fd) override { return ::close(fd); }
  int fstat(int fd, struct stat* st) override { return ::fstat(fd, st); }
  int fchmod(int fd, mode_t mode) override { return ::fchmod(fd, mode); }
  int fchown(int fd, uid_t owner, gid_t group) override { return ::fchown(fd, owner, group); }
  int flock(int fd, int operation) override { return ::flock(fd, operation); }
  int rename(const char* from, const char* to) override { return ::rename(from, to); }
};

}  // namespace

ssize_t FileIo::copyFileRange(int in, off_t* inOffset, int out, size_t size) {
  return ::copy_file_range(in, inOffset, out, nullptr, size, 0);
}

FileIo& FileIo::system() {
  // Never destroyed: a save still running on its queue while the process exits goes on using it
  // after static destructors have begun.
  static SystemFileIo* const io = new SystemFileIo;
  return *io;
}

base::Transfer writeAll(FileIo& io, int fd, std::string_view bytes) {
  return base::transferAll(bytes.size(), true, [&](size_t done) {
    return io.write(fd, bytes.data() + done, bytes.size() - done);
  });
}

base::Transfer preadAll(FileIo& io, int fd, void* dest, size_t size, off_t offset) {
  auto* out = static_cast<char*>(dest);
  return base::transferAll(size, false, [&](size_t done) {
    return io.pread(fd, out + done, size - done, offset + static_cast<off_t>(done));
  });
}

base::Transfer pwriteAll(FileIo& io, int fd, std::string_view bytes, off_t offset) {
  return base::transferAll(bytes.size(), true, [&](size_t done) {
    return io.pwrite(fd, bytes.data() + done, bytes.size() - done, offset + static_cast<off_t>(done));
  });
}

void flushDirectory(FileIo& io, const char* directory) {
  const base::UniqueFd dir = openFd(io, directory, O_RDONLY | O_DIRECTORY);
  if (dir) (void)durableFlush(io, dir.get());
}

}  // namespace quorin::persistence
