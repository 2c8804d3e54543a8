#pragma once

#include <cstdint>
#include <expected>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/UniqueFd.h"
#include "dispatch/MainQueue.h"
#include "dispatch/Timer.h"
#include "persistence/FileIo.h"

namespace quorin::live {

// Receives the bytes a follower read; returns false to refuse them (they are
// read again at the next poll). Implemented by the document.
class TailSink {
 public:
  virtual ~TailSink() = default;
  virtual bool acceptFollowedBytes(std::string_view bytes) = 0;
};

struct TailFollowerError {
  enum class Kind { openFailed, statFailed };
  Kind kind;
  std::string path;
  int err = 0;
  std::string describe() const;
};

// Follows a file another program appends to, by polling: each tick reads
// what was appended since the last one (at most an adaptive cap of 4 to
// 128 MiB, so the interface never stalls on a burst), hands it to the sink,
// and notices truncation, rotation (the path now names another file, after
// the old one has been drained for up to 4 polls), deletion (the path missing
// in 2 consecutive polls) and read failures, and keeps the lag (bytes on disk
// not yet read) for the status bar.
//
// The creation flag `keepReadErrorReport`: a follower restarted after a read
// error passes true so that the same failure, still there, is not reported a
// second time; a fresh follower passes false.
//
// Threads: created, polled (by its repeating main-queue timer) and destroyed
// on the main thread, where every callback runs; it holds no lock. The
// descriptor is closed exactly once.
class TailFollower {
 public:
  struct Callbacks {
    std::function<void(int64_t bytes)> onAppended;
    std::function<void()> onRotationDetected;
    std::function<void()> onTruncationDetected;
    std::function<void()> onDeleted;
    std::function<void(int err)> onReadError;
    std::function<void(int64_t lag)> onLagChanged;
  };

  static constexpr int64_t kInitialReadCap = int64_t{32} << 20;
  static constexpr int64_t kReadCapFloor = int64_t{4} << 20;
  static constexpr int64_t kReadCapCeiling = int64_t{128} << 20;
  static constexpr int64_t kCatchUpLagBytes = int64_t{512} << 20;

  static std::expected<std::unique_ptr<TailFollower>, TailFollowerError> create(
      const std::filesystem::path& url, std::weak_ptr<TailSink> document, int64_t startOffset,
      bool keepReadErrorReport, double pollInterval, dispatch::MainQueue& mainQueue, Callbacks callbacks,
      persistence::FileIo& io = persistence::FileIo::system(),
      std::function<uint64_t()> clock = nullptr);  // nanoseconds; null: the monotonic clock
  ~TailFollower();
  TailFollower(const TailFollower&) = delete;
  TailFollower& operator=(const TailFollower&) = delete;

  void start();
  void stop();
  // One poll; the timer calls it every pollInterval.
  void poll();
  // Skips the unread bytes: the next poll reads from the live end. The
  // skipped range [lastKnownLengthBeforeSkip, new position) stays on disk.
  void skipToLiveEnd();

  bool isFollowing() const { return isFollowing_; }
  int64_t lastKnownLength() const { return lastKnownLength_; }
  std::optional<int64_t> lastKnownLengthBeforeSkip() const { return lastKnownLengthBeforeSkip_; }
  int64_t lagBytes() const { return lagBytes_; }
  int64_t readCap() const { return readCap_; }
  int64_t backlogAtRotation() const { return backlogAtRotation_; }
  int64_t backlogAtDeletion() const { return backlogAtDeletion_; }
  std::optional<int> lastReadErrno() const { return lastReadErrno_; }
  const std::filesystem::path& url() const { return url_; }

 private:
  enum class Probe { sameFile, replaced, missing, unknown };
  TailFollower(std::filesystem::path url, std::weak_ptr<TailSink> document, double pollInterval,
               dispatch::MainQueue& mainQueue, Callbacks callbacks, persistence::FileIo& io,
               std::function<uint64_t()> clock);
  Probe probePath();
  bool declare(Probe probe, int64_t backlog);
  void failRead(int err);
  void reportLag();

  const std::filesystem::path url_;
  const double pollInterval_;
  const std::weak_ptr<TailSink> document_;
  dispatch::MainQueue& mainQueue_;
  const Callbacks callbacks_;
  persistence::FileIo& io_;
  const std::function<uint64_t()> clock_;
  base::UniqueFd fd_;
  std::unique_ptr<dispatch::Timer> timer_;
  int64_t lastKnownLength_ = 0;
  uint64_t trackedInode_ = 0;
  bool isFollowing_ = false;
  int missingPathPolls_ = 0;
  int64_t lagBytes_ = 0;
  int64_t readCap_ = kInitialReadCap;
  int64_t lastReportedLag_ = 0;
  double lastTickSeconds_ = 0;
  std::optional<int> lastReadErrno_;
  bool reportedReadError_ = false;
  bool holdReportAcrossStart_ = false;
  int64_t backlogAtRotation_ = 0;
  int64_t backlogAtDeletion_ = 0;
  int64_t drainedAfterRename_ = 0;
  bool rotationPending_ = false;
  int rotationDrainTicks_ = 0;
  std::optional<int64_t> lastKnownLengthBeforeSkip_;
};

}  // namespace quorin::live
