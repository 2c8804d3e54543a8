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
  int flock(int fd, int operation) override { return ::flock(fd, operation); }
  int rename(const char* from, const char* to) override { return ::rename(from, to); }
};

}  // namespace

ssize_t FileIo::copyFileRange(int in, off_t* inOffset, int out, size_t size) {
  return ::copy_file_range(in, inOffset, out, nullptr, size, 0);
}

FileIo& FileIo::system() {
  static SystemFileIo io;
  return io;
}

}  // namespace quorin::persistence
