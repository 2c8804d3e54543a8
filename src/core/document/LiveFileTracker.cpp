#include "document/LiveFileTracker.h"

#include "base/ByteCount.h"
#include "base/Errno.h"
#include "base/Log.h"
#include "document/Document.h"

namespace quorin::document {
namespace {

std::string quoted(const std::string& name) { return "\u201c" + name + "\u201d"; }

LiveFileNotice noticeOf(LiveFileNotice::Kind kind, std::string message) {
  return {.kind = kind, .message = std::move(message)};
}

}  // namespace

LiveFileTracker::~LiveFileTracker() {
  if (follower_ && !doc_.options_.mainQueue->isMainThread()) {
    doc_.options_.mainQueue->post([follower = std::shared_ptr<live::TailFollower>(std::move(follower_))] {});
  }
}

std::string LiveFileTracker::fileName() const {
  return std::filesystem::path(doc_.path_).filename().string();
}

void LiveFileTracker::notice(LiveFileNotice notice) {
  if (const auto handler = handler_) handler(notice);  // a copy: it may replace itself
  doc_.status(notice.message);
}

void LiveFileTracker::startWatching() {
  watcher_.reset();
  const uint64_t generation = ++watcherGeneration_;
  if (!doc_.options_.watchFile || doc_.isUntitled()) return;
  auto watcher =
      live::FileWatcher::create(doc_.path_, [weak = doc_.weak_from_this(), main = doc_.options_.mainQueue,
                                             generation](live::FileWatcher::Event event) {
        main->post([weak, generation, event] {
          if (const auto doc = weak.lock()) doc->live_->handleWatcherEvent(generation, event);
        });
      });
  if (!watcher) {
    base::logLine("cannot watch " + doc_.path_ + ": " + watcher.error().describe());
    return;
  }
  watcher_ = std::move(*watcher);
}

void LiveFileTracker::handleWatcherEvent(uint64_t generation, live::FileWatcher::Event event) {
  if (generation != watcherGeneration_ || !watcher_) return;
  using Event = live::FileWatcher::Event;
  const std::string name = fileName();
  switch (event) {
    case Event::write:
      // Our own saves write too, and a file being followed is read by its follower. A follower that
      // was stopped reads nothing: the watcher speaks for the file again.
      if (doc_.isSaving() || isFollowing()) return;
      if (doc_.source_.identity && watcher_->lastIdentity() == *doc_.source_.identity) return;
      outsideChange(LiveFileNotice::Kind::reloaded);
      return;
    case Event::rename: {
      const auto newPath = watcher_->pathAtLastEvent();
      if (!newPath) return;
      doc_.path_ = newPath->string();
      notice({.kind = LiveFileNotice::Kind::renamed,
              .message = quoted(name) + " was renamed to " + quoted(newPath->filename().string()),
              .newPath = doc_.path_});
      startWatching();
      return;
    }
    case Event::delete_:
      if (doc_.isSaving()) return;  // our rewrite replaced it; the save watches the new file
      if (std::filesystem::exists(doc_.path_)) {
        // Replaced by another file under the same name.
        startWatching();
        outsideChange(LiveFileNotice::Kind::reloaded);
        return;
      }
      fileMissing_ = true;
      watcher_.reset();
      notice(noticeOf(
          LiveFileNotice::Kind::deleted,
          quoted(name) + " was deleted from disk \u2014 its text is kept here; save to write it again"));
      return;
    case Event::revoke:
      watcher_.reset();
      notice(noticeOf(LiveFileNotice::Kind::volumeGone,
                      "The volume holding " + quoted(name) + " went away \u2014 its text is kept here"));
      return;
  }
}

void LiveFileTracker::outsideChange(LiveFileNotice::Kind quietKind) {
  const std::string name = fileName();
  if (doc_.isModified()) {
    externallyModified_ = true;
    notice(noticeOf(LiveFileNotice::Kind::externalChange,
                    quoted(name) + " changed on disk. Reload it, or keep your version?"));
    return;
  }
  if (reload()) {
    const bool truncated = quietKind == LiveFileNotice::Kind::truncated;
    notice(noticeOf(quietKind, quoted(name) + " " + (truncated ? "was truncated" : "changed on disk") +
                                   " and was reloaded"));
  }
}

void LiveFileTracker::resolveExternalChange(bool reloadIt) {
  if (reloadIt) {
    reload();
  } else {
    // The file's identity stays the old one, so the next save rewrites it; and
    // the text differs from the file now, so there is something to save.
    externallyModified_ = false;
    doc_.undo_->invalidateSavePoint();
  }
}

bool LiveFileTracker::reload() { return readAgain(false); }

bool LiveFileTracker::readAgain(bool rewatch) {
  const bool wasFollowing = follower_ && followingWanted_;
  if (!doc_.readFileAgain()) return false;
  follower_.reset();
  skippedRanges_.clear();  // the whole file was read, skipped bytes included
  externallyModified_ = false;
  fileMissing_ = false;
  if (rewatch) startWatching();
  if (wasFollowing) (void)startFollowing();
  return true;
}

std::optional<int64_t> LiveFileTracker::followedLength() const {
  if (!follower_) return std::nullopt;
  return follower_->lastKnownLength();
}

live::TailFollower::Callbacks LiveFileTracker::followerCallbacks() {
  live::TailFollower::Callbacks callbacks;
  auto with = [weak = doc_.weak_from_this()](auto fn) {
    return [weak, fn](auto... args) {
      if (const auto doc = weak.lock()) fn(*doc->live_, args...);
    };
  };
  callbacks.onTruncationDetected =
      with([](LiveFileTracker& t) { t.outsideChange(LiveFileNotice::Kind::truncated); });
  callbacks.onRotationDetected = with([](LiveFileTracker& t) {
    // Named by the path that was followed: the watcher may already have moved the document to the old
    // file's new name.
    t.notice({.kind = LiveFileNotice::Kind::rotated,
              .message = quoted(t.followedPath_.filename().string()) +
                         " was rotated \u2014 a new file has its name now. Switch to it?",
              .newPath = t.followedPath_.string()});
  });
  callbacks.onDeleted = with([](LiveFileTracker& t) {
    t.fileMissing_ = true;
    t.notice(noticeOf(LiveFileNotice::Kind::deleted,
                      quoted(t.fileName()) + " was deleted from disk \u2014 its text is kept here"));
  });
  callbacks.onReadError = with([](LiveFileTracker& t, int err) {
    t.notice(noticeOf(LiveFileNotice::Kind::readError,
                      "Reading " + quoted(t.fileName()) + " failed: " + base::errnoText(err)));
  });
  callbacks.onLagChanged = with([](LiveFileTracker& t, int64_t lag) {
    const bool far = lag > live::TailFollower::kCatchUpLagBytes;
    t.notice({.kind = LiveFileNotice::Kind::lagChanged,
              .message = lag == 0 ? std::string("Following live")
                                  : base::formatByteCount(lag) + " behind the live file" +
                                        (far ? " \u2014 Catch Up to Live?" : ""),
              .lagBytes = lag,
              .canCatchUp = far});
  });
  return callbacks;
}

std::expected<void, std::string> LiveFileTracker::startFollowing() {
  if (doc_.isUntitled()) return std::unexpected(std::string("Only a file on disk can be followed."));
  if (doc_.isTranscoded()) return std::unexpected(std::string("Following works for UTF-8 files only."));
  if (follower_) {
    follower_->start();
    followingWanted_ = true;
    return {};
  }
  const auto& table = *doc_.table_;
  const auto& identity = doc_.source_.identity;
  const int64_t start =
      identity ? identity->size : table.totalLength() + table.originalBuffer().contentStart();
  auto follower = live::TailFollower::create(
      doc_.path_, std::weak_ptr<live::TailSink>(doc_.shared_from_this()), start, false, 1.0,
      *doc_.options_.mainQueue, followerCallbacks(),
      doc_.options_.fileIo ? *doc_.options_.fileIo : persistence::FileIo::system());
  if (!follower) return std::unexpected(follower.error().describe());
  followedPath_ = doc_.path_;
  followingWanted_ = true;
  follower_ = std::move(*follower);
  follower_->start();
  return {};
}

void LiveFileTracker::stopFollowing() {
  followingWanted_ = false;
  if (follower_) follower_->stop();
}

int64_t LiveFileTracker::skippedBytes() const {
  int64_t total = 0;
  for (const auto& range : skippedRanges_) total += range.length();
  return total;
}

void LiveFileTracker::catchUpToLive() {
  if (!follower_) return;
  const int64_t before = follower_->lastKnownLength();
  follower_->skipToLiveEnd();
  const int64_t after = follower_->lastKnownLength();
  if (after <= before) return;
  skippedRanges_.push_back({before, after});
  notice(noticeOf(LiveFileNotice::Kind::caughtUp, "Skipped " + base::formatByteCount(after - before) +
                                                      " of " + quoted(fileName()) +
                                                      " \u2014 following the live end"));
}

bool LiveFileTracker::switchToRotatedFile() {
  if (doc_.isModified()) return false;  // the user saves (or discards) first
  // The new file sits at the path that was followed, whatever the old one is called now.
  if (!followedPath_.empty()) doc_.path_ = followedPath_.string();
  return readAgain(true);
}

void LiveFileTracker::fileWritten(bool rewritten, bool newPath) {
  fileMissing_ = false;
  if (newPath) {
    externallyModified_ = false;
    follower_.reset();  // it followed the old file
    followingWanted_ = false;
    skippedRanges_.clear();
  }
  if (rewritten) startWatching();
}

}  // namespace quorin::document
