#pragma once

#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <string_view>

namespace quorin::base {

// How far a transfer of `wanted` bytes got. It stops short at the end of the
// file (reads; `error` 0) or on a failing call (`error` is its errno; a write
// that moves nothing counts as EIO, since trying again would spin forever).
struct Transfer {
  size_t done = 0;
  size_t wanted = 0;
  int error = 0;

  bool complete() const { return done == wanted; }
};

// The one loop behind every "all of it" read and write: `step(done)` makes
// one attempt at the bytes from `done` on and returns what the system call
// returned. An interrupted call (EINTR) is retried; a short one continues.
template <class Step>
Transfer transferAll(size_t wanted, bool writing, Step&& step) {
  Transfer t{0, wanted, 0};
  while (t.done < wanted) {
    const ssize_t n = step(t.done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      t.error = errno;
      break;
    }
    if (n == 0) {
      if (writing) t.error = EIO;
      break;
    }
    t.done += static_cast<size_t>(n);
  }
  return t;
}

// The same over the system calls themselves, for code without a seam.
Transfer writeAll(int fd, std::string_view bytes);
Transfer readAll(int fd, void* dest, size_t size);  // stops early only at end of file or on error
Transfer preadAll(int fd, void* dest, size_t size, off_t offset);
Transfer pwriteAll(int fd, std::string_view bytes, off_t offset);

}  // namespace quorin::base
