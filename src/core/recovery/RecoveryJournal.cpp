#include "recovery/RecoveryJournal.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <random>

#include "base/Errno.h"

namespace quorin::recovery {
namespace {

std::string randomHex() {
  std::random_device device;
  std::string hex;
  static constexpr char kDigits[] = "0123456789abcdef";
  for (int i = 0; i < 16; ++i) hex += kDigits[device() & 15];
  return hex;
}

}  // namespace

std::string JournalWriteError::describe() const { return operation + " failed: " + base::errnoText(error); }

std::expected<RecoveryJournal, JournalWriteError> RecoveryJournal::create(
    const std::filesystem::path& directory, const JournalHeader& header, persistence::FileIo& io) {
  const auto path = directory / ("unsaved-" + randomHex() + ".qrj");
  base::UniqueFd fd(io.open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!fd.valid()) return std::unexpected(JournalWriteError{"open", errno});
  if (io.flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
    const int err = errno;
    ::unlink(path.c_str());
    return std::unexpected(JournalWriteError{"flock", err});
  }
  RecoveryJournal journal(path, std::move(fd), io);
  auto written = journal.writeAll(encodeJournalHeader(header));
  if (written) written = journal.flush();
  if (written) {
    // The journal's name must outlive a power cut as much as its bytes.
    base::UniqueFd dir(io.open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0));
    if (dir.valid()) persistence::durableFlush(io, dir.get());
  }
  if (!written) {
    journal.discard();
    return std::unexpected(written.error());
  }
  return journal;
}

std::expected<void, JournalWriteError> RecoveryJournal::writeAll(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t n = io_->write(fd_.get(), bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return std::unexpected(JournalWriteError{"write", n == 0 ? EIO : errno});
    bytes.remove_prefix(static_cast<size_t>(n));
    bytes_ += n;
  }
  dirty_ = true;
  return {};
}

std::expected<void, JournalWriteError> RecoveryJournal::append(const std::vector<SiteView>& sites) {
  auto written = writeAll(encodeRecord(sites));
  if (written) ++records_;
  return written;
}

std::expected<void, JournalWriteError> RecoveryJournal::appendRaw(std::string_view records) {
  return writeAll(records);
}

std::expected<void, JournalWriteError> RecoveryJournal::flush() {
  if (persistence::durableFlush(*io_, fd_.get()) != 0)
    return std::unexpected(JournalWriteError{"fsync", errno});
  dirty_ = false;
  return {};
}

void RecoveryJournal::discard() {
  if (!path_.empty()) ::unlink(path_.c_str());
  fd_.reset();
}

}  // namespace quorin::recovery
