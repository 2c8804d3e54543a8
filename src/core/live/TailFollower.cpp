#include "live/TailFollower.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "base/Errno.h"
#include "dispatch/Clock.h"

namespace quorin::live {

std::string TailFollowerError::describe() const {
  if (kind == Kind::openFailed) {
    return "open(" + path + ", O_RDONLY) failed for tail follower: " + base::errnoText(err);
  }
  return "fstat failed during tail follower setup: " + base::errnoText(err);
}

std::expected<std::unique_ptr<TailFollower>, TailFollowerError> TailFollower::create(
    const std::filesystem::path& url, std::weak_ptr<TailSink> document, int64_t startOffset,
    bool keepReadErrorReport, double pollInterval, dispatch::MainQueue& mainQueue, Callbacks callbacks,
    persistence::FileIo& io, std::function<uint64_t()> clock) {
  base::UniqueFd fd = persistence::openFd(io, url.c_str(), O_RDONLY);
  if (!fd)
    return std::unexpected(TailFollowerError{TailFollowerError::Kind::openFailed, url.string(), errno});
  struct stat st;
  if (io.fstat(fd.get(), &st) != 0)
    return std::unexpected(TailFollowerError{TailFollowerError::Kind::statFailed, {}, errno});
  std::unique_ptr<TailFollower> follower(new TailFollower(url, std::move(document), pollInterval, mainQueue,
                                                          std::move(callbacks), io, std::move(clock)));
  follower->fd_ = std::move(fd);
  follower->trackedInode_ = static_cast<uint64_t>(st.st_ino);
  follower->lastKnownLength_ = std::max<int64_t>(startOffset, 0);
  follower->reportedReadError_ = keepReadErrorReport;
  follower->holdReportAcrossStart_ = keepReadErrorReport;
  return follower;
}

TailFollower::TailFollower(std::filesystem::path url, std::weak_ptr<TailSink> document, double pollInterval,
                           dispatch::MainQueue& mainQueue, Callbacks callbacks, persistence::FileIo& io,
                           std::function<uint64_t()> clock)
    : url_(std::move(url)),
      pollInterval_(pollInterval),
      document_(std::move(document)),
      mainQueue_(mainQueue),
      callbacks_(std::move(callbacks)),
      io_(io),
      clock_(clock ? std::move(clock) : std::function<uint64_t()>(dispatch::monotonicNanos)) {}

TailFollower::~TailFollower() { stop(); }

void TailFollower::start() {
  if (!fd_ || isFollowing_) return;
  if (!holdReportAcrossStart_) reportedReadError_ = false;
  isFollowing_ = true;
  timer_ =
      dispatch::Timer::repeating(mainQueue_, static_cast<uint64_t>(pollInterval_ * 1e9), [this] { poll(); });
}

void TailFollower::stop() {
  if (timer_) timer_->cancel();
  isFollowing_ = false;
}

TailFollower::Probe TailFollower::probePath() {
  struct stat st;
  if (::stat(url_.c_str(), &st) == 0) {
    missingPathPolls_ = 0;
    return static_cast<uint64_t>(st.st_ino) == trackedInode_ ? Probe::sameFile : Probe::replaced;
  }
  if (errno == ENOENT) {
    ++missingPathPolls_;
    return Probe::missing;
  }
  return Probe::unknown;
}

bool TailFollower::declare(Probe probe, int64_t backlog) {
  const bool deleted = probe == Probe::missing && missingPathPolls_ >= 2;
  if (probe != Probe::replaced && !deleted) return false;
  (deleted ? backlogAtDeletion_ : backlogAtRotation_) = backlog;
  lagBytes_ = backlog;
  rotationPending_ = false;
  rotationDrainTicks_ = 0;
  stop();
  const auto& callback = deleted ? callbacks_.onDeleted : callbacks_.onRotationDetected;
  if (callback) callback();
  return true;
}

void TailFollower::failRead(int err) {
  lastReadErrno_ = err;
  stop();
  if (reportedReadError_) return;
  reportedReadError_ = true;
  if (callbacks_.onReadError) callbacks_.onReadError(err);
}

void TailFollower::poll() {
  if (document_.expired()) {
    stop();
    return;
  }
  struct stat st;
  if (!fd_ || io_.fstat(fd_.get(), &st) != 0) {
    failRead(fd_ ? errno : EBADF);
    return;
  }
  const int64_t size = st.st_size;
  const Probe probe = probePath();
  if (probe == Probe::sameFile && rotationPending_) {
    rotationPending_ = false;
    rotationDrainTicks_ = 0;
    drainedAfterRename_ = 0;
  }
  if (probe == Probe::replaced || probe == Probe::missing) {
    if (!rotationPending_) {
      rotationPending_ = true;
      rotationDrainTicks_ = 0;
      drainedAfterRename_ = 0;
    }
    if ((size <= lastKnownLength_ || rotationDrainTicks_ >= 4) &&
        declare(probe, std::max<int64_t>(size - lastKnownLength_, 0))) {
      return;
    }
  }
  if (size < lastKnownLength_) {
    stop();
    if (callbacks_.onTruncationDetected) callbacks_.onTruncationDetected();
    return;
  }
  if (size == lastKnownLength_) {
    lagBytes_ = 0;
    reportLag();
    return;
  }

  const int64_t available = size - lastKnownLength_;
  const int64_t capBefore = readCap_;
  const int64_t toRead = std::min(readCap_, available);
  std::string bytes(static_cast<size_t>(toRead), '\0');
  const uint64_t startNs = clock_();
  const auto read =
      persistence::preadAll(io_, fd_.get(), bytes.data(), bytes.size(), static_cast<off_t>(lastKnownLength_));
  if (read.error != 0) {
    failRead(read.error);
    return;
  }
  const size_t got = read.done;
  if (got == 0) return;
  bytes.resize(got);
  const double elapsed = static_cast<double>(clock_() - startNs) / 1e9;

  const auto document = document_.lock();
  if (!document || !document->acceptFollowedBytes(bytes)) return;
  lastTickSeconds_ = elapsed;
  lastKnownLength_ += static_cast<int64_t>(got);
  if (rotationPending_) {
    ++rotationDrainTicks_;
    drainedAfterRename_ += static_cast<int64_t>(got);
  }
  if (callbacks_.onAppended) callbacks_.onAppended(static_cast<int64_t>(got));

  if (capBefore <= available && elapsed < 0.5 * pollInterval_) {
    readCap_ = std::min(readCap_ * 2, kReadCapCeiling);
  } else if (elapsed > 0.75 * pollInterval_) {
    readCap_ = std::max(readCap_ / 2, kReadCapFloor);
  }
  lagBytes_ = std::max<int64_t>(size - lastKnownLength_, 0);
  reportLag();
  if (rotationPending_ && lagBytes_ == 0) declare(probe, 0);
}

void TailFollower::reportLag() {
  const bool small = std::llabs(lagBytes_ - lastReportedLag_) < (int64_t{1} << 20) &&
                     ((lagBytes_ == 0) == (lastReportedLag_ == 0));
  const bool quiet = (lagBytes_ <= kCatchUpLagBytes && small) ||
                     (lagBytes_ > kCatchUpLagBytes && lastReportedLag_ > kCatchUpLagBytes && small);
  if (quiet) return;
  lastReportedLag_ = lagBytes_;
  if (callbacks_.onLagChanged) callbacks_.onLagChanged(lagBytes_);
}

void TailFollower::skipToLiveEnd() {
  struct stat st;
  if (!fd_ || io_.fstat(fd_.get(), &st) != 0) return;
  lastKnownLengthBeforeSkip_ = lastKnownLength_;
  lastKnownLength_ = std::max<int64_t>(st.st_size, lastKnownLength_);
  lagBytes_ = 0;
  reportLag();
}

}  // namespace quorin::live
