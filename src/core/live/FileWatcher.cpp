#include "live/FileWatcher.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "base/Errno.h"
#include "base/Mutex.h"
#include "base/UniqueFd.h"

namespace quorin::live {

std::string FileWatcherError::describe() const {
  if (kind == Kind::openFailed) return "open(" + path + ", O_EVTONLY) failed: " + base::errnoText(err);
  return "fstat failed: " + base::errnoText(err);
}

// Everything the event loop touches; shared so the loop may outlive a stop.
struct FileWatcher::State {
  base::UniqueFd inotifyFd;
  base::UniqueFd pathFd;  // O_PATH
  base::UniqueFd stopFd;
  std::function<void(Event)> onEvent;
  mutable base::Mutex lock;
  storage::FileIdentity lastIdentity GUARDED_BY(lock);
  std::optional<std::filesystem::path> pathAtLastEvent GUARDED_BY(lock);
  bool descriptorClosing = false;  // only the loop touches it

  std::optional<std::filesystem::path> currentPath() const {
    char buffer[4096];
    const std::string link = "/proc/self/fd/" + std::to_string(pathFd.get());
    const ssize_t n = ::readlink(link.c_str(), buffer, sizeof buffer - 1);
    if (n <= 0) return std::nullopt;
    std::string path(buffer, static_cast<size_t>(n));
    if (path.ends_with(" (deleted)")) return std::nullopt;
    return std::filesystem::path(path);
  }

  void emit(Event event) {
    if (onEvent) onEvent(event);
  }

  // One delivery: the events of one read. Returns false once the watch is over.
  bool handle(uint32_t mask) {
    // The watch ends by itself (IN_IGNORED) after a deletion; without one, the file system went away.
    if ((mask & IN_UNMOUNT) || ((mask & IN_IGNORED) && !(mask & IN_DELETE_SELF))) {
      descriptorClosing = true;
      emit(Event::revoke);
      return false;
    }
    bool deleted = (mask & IN_DELETE_SELF) != 0;
    struct stat st {};
    const bool statted = ::fstat(pathFd.get(), &st) == 0;
    if (!deleted && (mask & IN_ATTRIB) && statted && st.st_nlink == 0) deleted = true;
    if (deleted || (mask & IN_MOVE_SELF)) {
      {
        base::MutexLock guard(lock);
        pathAtLastEvent = currentPath();
      }
      descriptorClosing = true;
      emit(deleted ? Event::delete_ : Event::rename);
      return false;
    }
    if (mask & (IN_MODIFY | IN_ATTRIB)) {
      if (descriptorClosing) return false;
      if (!statted) {
        descriptorClosing = true;
        emit(Event::delete_);
        return false;
      }
      {
        base::MutexLock guard(lock);
        lastIdentity = storage::FileIdentity::fromStat(st);
      }
      emit(Event::write);
    }
    return true;
  }

  void run() {
    std::array<char, 4096> buffer;
    pollfd fds[2] = {{stopFd.get(), POLLIN, 0}, {inotifyFd.get(), POLLIN, 0}};
    while (true) {
      if (::poll(fds, 2, -1) < 0) {
        if (errno == EINTR) continue;
        return;
      }
      if (fds[0].revents != 0) return;
      const ssize_t n = ::read(inotifyFd.get(), buffer.data(), buffer.size());
      if (n <= 0) continue;
      uint32_t mask = 0;
      for (ssize_t at = 0; at < n;) {
        const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + at);
        mask |= event->mask;
        at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      }
      if (!handle(mask)) return;
    }
  }
};

std::expected<std::unique_ptr<FileWatcher>, FileWatcherError> FileWatcher::create(
    const std::filesystem::path& url, std::function<void(Event)> onEvent) {
  std::error_code ec;
  const auto resolved = std::filesystem::canonical(url, ec);
  const auto watched = ec ? url : resolved;
  auto state = std::make_shared<State>();
  state->onEvent = std::move(onEvent);
  state->pathFd.reset(::open(watched.c_str(), O_PATH | O_CLOEXEC));
  if (!state->pathFd)
    return std::unexpected(FileWatcherError{FileWatcherError::Kind::openFailed, watched.string(), errno});
  struct stat st;
  if (::fstat(state->pathFd.get(), &st) != 0)
    return std::unexpected(FileWatcherError{FileWatcherError::Kind::statFailed, {}, errno});
  state->inotifyFd.reset(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  state->stopFd.reset(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!state->inotifyFd || !state->stopFd ||
      ::inotify_add_watch(state->inotifyFd.get(), watched.c_str(),
                          IN_MODIFY | IN_ATTRIB | IN_MOVE_SELF | IN_DELETE_SELF | IN_UNMOUNT) < 0) {
    return std::unexpected(FileWatcherError{FileWatcherError::Kind::openFailed, watched.string(), errno});
  }
  {
    base::MutexLock guard(state->lock);  // the loop has not started: never contended
    state->lastIdentity = storage::FileIdentity::fromStat(st);
  }
  std::unique_ptr<FileWatcher> watcher(
      new FileWatcher(url, watched, storage::FileIdentity::fromStat(st), state));
  watcher->queue_ = std::make_unique<dispatch::SerialQueue>(
      "quorin.filewatcher." + watched.filename().string(), dispatch::QualityOfService::utility);
  watcher->queue_->async([state] { state->run(); });
  return watcher;
}

FileWatcher::FileWatcher(std::filesystem::path url, std::filesystem::path resolved,
                         storage::FileIdentity identity, std::shared_ptr<State> state)
    : url_(std::move(url)),
      resolvedURL_(std::move(resolved)),
      initialIdentity_(identity),
      state_(std::move(state)) {}

FileWatcher::~FileWatcher() {
  stop();
  queue_.reset();  // joins the loop, which the stop has ended
}

void FileWatcher::stop() {
  const uint64_t one = 1;
  (void)::write(state_->stopFd.get(), &one, sizeof one);
}

storage::FileIdentity FileWatcher::lastIdentity() const {
  base::MutexLock guard(state_->lock);
  return state_->lastIdentity;
}

std::optional<std::filesystem::path> FileWatcher::pathAtLastEvent() const {
  base::MutexLock guard(state_->lock);
  return state_->pathAtLastEvent;
}

}  // namespace quorin::live
