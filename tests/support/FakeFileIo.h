#pragma once

#include <functional>

#include "persistence/FileIo.h"

namespace quorin::testing {

// The system's file calls, except those a test replaces to fail on demand.
class FakeFileIo final : public persistence::FileIo {
 public:
  std::function<int(const char*, int, mode_t)> onOpen;
  std::function<ssize_t(int, const void*, size_t)> onWrite;
  std::function<ssize_t(int, const void*, size_t, off_t)> onPwrite;
  std::function<ssize_t(int, void*, size_t, off_t)> onPread;
  std::function<int(int)> onFsync;
  std::function<int(int, struct stat*)> onFstat;
  std::function<int(int, mode_t)> onFchmod;
  std::function<int(int, int)> onFlock;
  std::function<int(const char*, const char*)> onRename;
  std::function<ssize_t(int, off_t*, int, size_t)> onCopy;
  persistence::FileIo& real = persistence::FileIo::system();

  int open(const char* p, int f, mode_t m) override { return onOpen ? onOpen(p, f, m) : real.open(p, f, m); }
  ssize_t write(int fd, const void* d, size_t n) override {
    return onWrite ? onWrite(fd, d, n) : real.write(fd, d, n);
  }
  ssize_t pwrite(int fd, const void* d, size_t n, off_t o) override {
    return onPwrite ? onPwrite(fd, d, n, o) : real.pwrite(fd, d, n, o);
  }
  ssize_t pread(int fd, void* d, size_t n, off_t o) override {
    return onPread ? onPread(fd, d, n, o) : real.pread(fd, d, n, o);
  }
  int fsync(int fd) override { return onFsync ? onFsync(fd) : real.fsync(fd); }
  int close(int fd) override { return real.close(fd); }
  int fstat(int fd, struct stat* st) override { return onFstat ? onFstat(fd, st) : real.fstat(fd, st); }
  int fchmod(int fd, mode_t m) override { return onFchmod ? onFchmod(fd, m) : real.fchmod(fd, m); }
  int fchown(int fd, uid_t u, gid_t g) override { return real.fchown(fd, u, g); }
  int flock(int fd, int op) override { return onFlock ? onFlock(fd, op) : real.flock(fd, op); }
  int rename(const char* a, const char* b) override { return onRename ? onRename(a, b) : real.rename(a, b); }
  ssize_t copyFileRange(int in, off_t* o, int out, size_t n) override {
    return onCopy ? onCopy(in, o, out, n) : real.copyFileRange(in, o, out, n);
  }
};

}  // namespace quorin::testing
