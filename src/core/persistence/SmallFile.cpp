#include "persistence/SmallFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "base/Errno.h"

namespace quorin::persistence {

std::string SmallFileError::describe() const {
  return operation + "(" + path + ") failed: " + base::errnoText(error);
}

std::expected<void, SmallFileError> writeFileAtomically(const std::filesystem::path& path,
                                                        std::string_view text, FileIo& io) {
  const std::string target = path.string();
  const std::string temporary = target + ".partial";
  const auto fail = [&](const char* operation, const std::string& name) {
    return std::unexpected(SmallFileError{operation, name, errno});
  };
  const int fd = io.open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return fail("open", temporary);
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t wrote = io.write(fd, text.data() + done, text.size() - done);
    if (wrote < 0 && errno == EINTR) continue;
    if (wrote <= 0) {
      if (wrote == 0) errno = EIO;
      auto error = fail("write", temporary);
      io.close(fd);
      ::unlink(temporary.c_str());
      return error;
    }
    done += static_cast<size_t>(wrote);
  }
  const int synced = durableFlush(io, fd);
  const int syncError = errno;
  const int closed = io.close(fd);
  if (synced != 0 || closed != 0) {
    if (synced != 0) errno = syncError;
    auto error = fail(synced != 0 ? "fsync" : "close", temporary);
    ::unlink(temporary.c_str());
    return error;
  }
  if (io.rename(temporary.c_str(), target.c_str()) != 0) {
    auto error = fail("rename", target);
    ::unlink(temporary.c_str());
    return error;
  }
  // The new name is only durable once the directory holding it is flushed;
  // a failure here leaves a complete file, so it is not reported.
  const std::string parent = path.has_parent_path() ? path.parent_path().string() : std::string(".");
  if (const int dir = io.open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0); dir >= 0) {
    durableFlush(io, dir);
    io.close(dir);
  }
  return {};
}

}  // namespace quorin::persistence
