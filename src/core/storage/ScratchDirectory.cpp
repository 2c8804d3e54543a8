#include "storage/ScratchDirectory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>

#include "base/Errno.h"
#include "base/UniqueFd.h"

namespace quorin::storage {
namespace {

namespace fs = std::filesystem;

constexpr const char* kDocumentPrefix = "doc-";
constexpr const char* kLockFileName = "owner.lock";
// A directory without a lock file this young may still be being set up by
// another instance starting at the same moment.
constexpr auto kUnlockedGrace = std::chrono::minutes(1);

std::string failure(const std::string& call, const fs::path& path, int err) {
  return call + "(" + path.string() + ") failed: " + base::errnoText(err);
}

// Creates `dir` with mode 0700 unless it exists; the error text or empty.
std::string makePrivateDirectory(const fs::path& dir) {
  if (::mkdir(dir.c_str(), 0700) == 0 || errno == EEXIST) return {};
  return failure("mkdir", dir, errno);
}

std::string randomHex() {
  std::random_device device;
  const uint64_t value = (uint64_t{device()} << 32) ^ device();
  char text[17];
  std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(value));
  return text;
}

// An exclusively locked "owner.lock" in `dir`, or errno. The file is made
// unnamed, locked, and only then given its name, so that a cleaner never
// sees it unlocked; without unnamed-file support it is created and locked
// at once, a window that only a simultaneous start could hit.
std::expected<base::UniqueFd, int> lockedOwnerFile(const fs::path& dir) {
  const fs::path lockPath = dir / kLockFileName;
  if (base::UniqueFd unnamed(::open(dir.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600)); unnamed) {
    const std::string procPath = "/proc/self/fd/" + std::to_string(unnamed.get());
    if (::flock(unnamed.get(), LOCK_EX | LOCK_NB) == 0 &&
        ::linkat(AT_FDCWD, procPath.c_str(), AT_FDCWD, lockPath.c_str(), AT_SYMLINK_FOLLOW) == 0) {
      return unnamed;
    }
  }
  base::UniqueFd fd(::open(lockPath.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!fd) return std::unexpected(errno);
  if (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) return std::unexpected(errno);
  return fd;
}

bool olderThanGrace(const fs::path& dir) {
  std::error_code ec;
  const auto written = fs::last_write_time(dir, ec);
  return !ec && fs::file_time_type::clock::now() - written > kUnlockedGrace;
}

// Removes `dir` when no live owner holds its lock; true when it did.
bool removeIfStale(const fs::path& dir) {
  std::error_code ec;
  const base::UniqueFd fd(::open((dir / kLockFileName).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (!fd) {
    if (errno != ENOENT || !olderThanGrace(dir)) return false;
    return fs::remove_all(dir, ec) > 0;
  }
  // Held while removing, so that nobody else treats the directory as free meanwhile.
  const bool free = ::flock(fd.get(), LOCK_EX | LOCK_NB) == 0;
  return free && fs::remove_all(dir, ec) > 0;
}

}  // namespace

std::expected<fs::path, std::string> ScratchDirectory::root() {
  fs::path data;
  const char* xdg = std::getenv("XDG_DATA_HOME");
  if (xdg != nullptr && xdg[0] == '/') {
    data = xdg;
  } else {
    const char* home = std::getenv("HOME");
    if (home == nullptr || home[0] == '\0') return std::unexpected("no home directory for scratch files");
    data = fs::path(home) / ".local" / "share";
  }
  std::error_code ec;
  fs::create_directories(data, ec);
  if (ec) return std::unexpected(failure("mkdir", data, ec.value()));
  for (const fs::path& dir : {data / "Quorin", data / "Quorin" / "scratch"}) {
    if (std::string error = makePrivateDirectory(dir); !error.empty()) return std::unexpected(error);
  }
  return data / "Quorin" / "scratch";
}

std::expected<std::unique_ptr<ScratchDirectory>, std::string> ScratchDirectory::createForDocument() {
  auto scratchRoot = root();
  if (!scratchRoot) return std::unexpected(scratchRoot.error());
  fs::path dir;
  for (int attempt = 0;; ++attempt) {
    dir = *scratchRoot / (kDocumentPrefix + randomHex());
    if (::mkdir(dir.c_str(), 0700) == 0) break;
    if (errno != EEXIST || attempt == 7) return std::unexpected(failure("mkdir", dir, errno));
  }
  auto lock = lockedOwnerFile(dir);
  if (!lock) {
    std::error_code ec;
    fs::remove_all(dir, ec);
    return std::unexpected(failure("lock", dir / kLockFileName, lock.error()));
  }
  return std::unique_ptr<ScratchDirectory>(new ScratchDirectory(std::move(dir), std::move(*lock)));
}

int ScratchDirectory::cleanStaleDocumentDirectories() {
  auto scratchRoot = root();
  if (!scratchRoot) return 0;
  int removed = 0;
  std::error_code ec;
  for (fs::directory_iterator it(*scratchRoot, ec), end; !ec && it != end; it.increment(ec)) {
    std::error_code statError;
    if (!it->path().filename().string().starts_with(kDocumentPrefix)) continue;
    if (it->is_symlink(statError) || !it->is_directory(statError)) continue;
    if (removeIfStale(it->path())) ++removed;
  }
  return removed;
}

ScratchDirectory::~ScratchDirectory() {
  std::error_code ec;
  fs::remove_all(path_, ec);
  // The lock goes last (the member's destructor): until the files are gone, nobody may take them for free.
}

}  // namespace quorin::storage
