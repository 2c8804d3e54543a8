#pragma once

#include <cstdint>
#include <expected>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "document/DocumentTypes.h"
#include "live/FileWatcher.h"
#include "live/TailFollower.h"
#include "storage/ByteRange.h"

namespace quorin::document {

class Document;

// A document's view of its file on disk after opening: the watcher (armed in
// every state, following or not), the tail follower while the file is
// followed, catch-up and the ranges it skipped, rotation, deletion and
// outside changes, and the notices that tell the user about them.
//
// Lifetime: a member of its Document, which outlives it. The watcher's and
// follower's callbacks hold the document weakly. Thread-safety: main thread
// only; destroyed elsewhere, it hands the follower (whose poll timer belongs
// to the main thread) to the main queue to be let go there.
class LiveFileTracker {
 public:
  explicit LiveFileTracker(Document& document) : doc_(document) {}
  ~LiveFileTracker();
  LiveFileTracker(const LiveFileTracker&) = delete;
  LiveFileTracker& operator=(const LiveFileTracker&) = delete;

  void setHandler(std::function<void(const LiveFileNotice&)> handler) { handler_ = std::move(handler); }
  // (Re)arms the watcher on the document's current path.
  void startWatching();

  std::expected<void, std::string> startFollowing();
  void stopFollowing();
  bool isFollowing() const { return follower_ && follower_->isFollowing(); }
  // The file's length as last read by the follower, when there is one.
  std::optional<int64_t> followedLength() const;
  void catchUpToLive();
  const std::vector<storage::ByteRange>& skippedRanges() const { return skippedRanges_; }
  int64_t skippedBytes() const;
  bool switchToRotatedFile();

  // Reads the file again (dropping the history), following on if it was followed.
  bool reload();
  void resolveExternalChange(bool reload);
  bool isExternallyModified() const { return externallyModified_; }
  void setExternallyModified(bool modified) { externallyModified_ = modified; }
  bool isFileMissing() const { return fileMissing_; }

  // After the document's text was written to its file: it exists and is
  // watched again when `rewritten` (a new inode); after Save As (`newPath`)
  // nothing of the old file is followed or skipped any more.
  void fileWritten(bool rewritten, bool newPath);

 private:
  // Reads the file at the document's path again; the follower, if the user follows, starts over on it.
  bool readAgain(bool rewatch);
  void handleWatcherEvent(uint64_t generation, live::FileWatcher::Event event);
  void outsideChange(LiveFileNotice::Kind quietKind);
  void notice(LiveFileNotice notice);
  live::TailFollower::Callbacks followerCallbacks();
  std::string fileName() const;

  Document& doc_;
  std::function<void(const LiveFileNotice&)> handler_;
  std::unique_ptr<live::FileWatcher> watcher_;
  uint64_t watcherGeneration_ = 0;  // events of a replaced watcher are ignored
  std::unique_ptr<live::TailFollower> follower_;
  // The path the follower watches: a rotation puts the new file there, even
  // after the watcher saw the old file renamed away.
  std::filesystem::path followedPath_;
  std::vector<storage::ByteRange> skippedRanges_;  // file bytes, never read
  // The user asked to follow and has not stopped: a reload (after truncation, say) follows on.
  bool followingWanted_ = false;
  bool externallyModified_ = false;
  bool fileMissing_ = false;
};

}  // namespace quorin::document
