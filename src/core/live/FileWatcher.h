#pragma once

#include <expected>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "dispatch/SerialQueue.h"
#include "storage/FileIdentity.h"

namespace quorin::live {

// Why a file could not be watched; describe() is the text for the log.
struct FileWatcherError {
  enum class Kind { openFailed, statFailed };
  Kind kind;
  std::string path;  // openFailed
  int err = 0;
  std::string describe() const;
};

// Tells its owner when the open file changes on disk: written or grown,
// moved, deleted (or replaced by another file at its path, which deletes or
// moves the old one), or gone with its volume.
//
// It watches the file itself (inotify on the inode, which follows it across
// renames), not its directory. One event per delivery, by precedence revoke >
// delete > rename > write: events read together are one delivery, so a
// rename plus a write yields rename only. Structural events are final: after
// revoke, delete or rename the watch is gone, and the owner creates a new
// watcher if it wants to go on. Writes keep coming.
//
// A small descriptor (O_PATH: it reads nothing and keeps no volume busy for
// I/O) is kept to learn the file's new path after a rename and its identity
// after a write. Because that descriptor keeps the inode alive, the kernel's
// own "deleted" event would only come once we let go: a deletion is seen as
// the link count dropping to zero, which the kernel reports as an attribute
// change.
//
// Threads: events are handled, and onEvent called, on the watcher's serial
// queue "quorin.filewatcher.<file name>"; the owner hops to the main thread.
// Destroy (or stop) from any thread but that queue.
class FileWatcher {
 public:
  enum class Event { write, rename, delete_, revoke };

  static std::expected<std::unique_ptr<FileWatcher>, FileWatcherError> create(
      const std::filesystem::path& url, std::function<void(Event)> onEvent);
  ~FileWatcher();
  FileWatcher(const FileWatcher&) = delete;
  FileWatcher& operator=(const FileWatcher&) = delete;

  void stop();
  const std::filesystem::path& url() const { return url_; }
  const std::filesystem::path& resolvedURL() const { return resolvedURL_; }
  storage::FileIdentity initialIdentity() const { return initialIdentity_; }
  storage::FileIdentity lastIdentity() const;
  // The file's path as read at the latest rename or delete event; absent when it could not be read.
  std::optional<std::filesystem::path> pathAtLastEvent() const;

 private:
  struct State;
  FileWatcher(std::filesystem::path url, std::filesystem::path resolved, storage::FileIdentity identity,
              std::shared_ptr<State> state);

  const std::filesystem::path url_;
  const std::filesystem::path resolvedURL_;
  const storage::FileIdentity initialIdentity_;
  std::shared_ptr<State> state_;
  std::unique_ptr<dispatch::SerialQueue> queue_;
};

}  // namespace quorin::live
