#include "base/Transfer.h"

#include <unistd.h>

namespace quorin::base {

Transfer writeAll(int fd, std::string_view bytes) {
  return transferAll(bytes.size(), true,
                     [&](size_t done) { return ::write(fd, bytes.data() + done, bytes.size() - done); });
}

Transfer readAll(int fd, void* dest, size_t size) {
  auto* out = static_cast<char*>(dest);
  return transferAll(size, false, [&](size_t done) { return ::read(fd, out + done, size - done); });
}

Transfer preadAll(int fd, void* dest, size_t size, off_t offset) {
  auto* out = static_cast<char*>(dest);
  return transferAll(size, false, [&](size_t done) {
    return ::pread(fd, out + done, size - done, offset + static_cast<off_t>(done));
  });
}

Transfer pwriteAll(int fd, std::string_view bytes, off_t offset) {
  return transferAll(bytes.size(), true, [&](size_t done) {
    return ::pwrite(fd, bytes.data() + done, bytes.size() - done, offset + static_cast<off_t>(done));
  });
}

}  // namespace quorin::base
