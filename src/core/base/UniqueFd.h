#pragma once

#include <unistd.h>

#include <utility>

namespace quorin::base {

// Owns one file descriptor and closes it when it goes: every early return of
// a function that opened something closes it, with no close call to forget.
// Move-only. Thread-safety: none; an object belongs to one thread at a time.
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  ~UniqueFd() { reset(); }
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  explicit operator bool() const { return valid(); }

  // Gives the descriptor up without closing it.
  int release() { return std::exchange(fd_, -1); }
  // Closes the held descriptor (if any) and holds `fd` instead.
  void reset(int fd = -1) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }
  // Closes now and reports close's result (0, or -1 with errno set): a
  // network file system may tell of a failed write only here.
  int close() {
    const int fd = release();
    return fd >= 0 ? ::close(fd) : 0;
  }

 private:
  int fd_ = -1;
};

}  // namespace quorin::base
