#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <fstream>
#include <functional>
#include <mutex>

#include "dispatch/ManualMainQueue.h"
#include "live/FileWatcher.h"
#include "live/TailFollower.h"
#include "support/FakeFileIo.h"
#include "support/TempDir.h"

namespace quorin::live {
namespace {

using testing::FakeFileIo;

using testing::TempDir;

void append(const std::filesystem::path& p, const std::string& bytes) {
  std::ofstream(p, std::ios::binary | std::ios::app) << bytes;
}

// Collects a watcher's events, which arrive on its own thread.
struct EventLog {
  std::mutex lock;
  std::condition_variable arrived;
  std::vector<FileWatcher::Event> events;

  std::function<void(FileWatcher::Event)> sink() {
    return [this](FileWatcher::Event e) {
      std::scoped_lock guard(lock);
      events.push_back(e);
      arrived.notify_all();
    };
  }
  std::optional<FileWatcher::Event> waitFor(size_t count) {
    std::unique_lock guard(lock);
    arrived.wait_for(guard, std::chrono::seconds(5), [&] { return events.size() >= count; });
    return events.size() >= count ? std::optional(events[count - 1]) : std::nullopt;
  }
};

TEST(FileWatcher, WritesRenamesDeletionsAndReplacement) {
  TempDir dir;
  const auto file = dir.write("app.log", "one\n");
  {
    EventLog log;
    auto watcher = FileWatcher::create(file, log.sink()).value();
    append(file, "two\n");
    EXPECT_EQ(log.waitFor(1), FileWatcher::Event::write);
    EXPECT_EQ(watcher->lastIdentity().size, 8);
    EXPECT_EQ(watcher->initialIdentity().size, 4);
    std::filesystem::rename(file, dir.path() / "app.log.1");
    EXPECT_EQ(log.waitFor(2), FileWatcher::Event::rename);
    EXPECT_EQ(watcher->pathAtLastEvent(), dir.path() / "app.log.1");
    append(dir.path() / "app.log.1", "after\n");  // single-shot: nothing follows a rename
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(log.events.size(), 2u);
  }
  {
    // Rotation by replacement: the old node loses its last link.
    const auto current = dir.write("current.log", "old\n");
    EventLog log;
    auto watcher = FileWatcher::create(current, log.sink()).value();
    const auto fresh = dir.write("fresh.log", "new\n");
    std::filesystem::rename(fresh, current);
    EXPECT_EQ(log.waitFor(1), FileWatcher::Event::delete_);
  }
  {
    const auto doomed = dir.write("doomed.log", "x");
    EventLog log;
    auto watcher = FileWatcher::create(doomed, log.sink()).value();
    std::filesystem::remove(doomed);
    EXPECT_EQ(log.waitFor(1), FileWatcher::Event::delete_);
    EXPECT_EQ(watcher->pathAtLastEvent(), std::nullopt);
  }
  EXPECT_EQ(FileWatcher::create(dir.path() / "missing", nullptr).error().describe(),
            "open(" + (dir.path() / "missing").string() + ", O_EVTONLY) failed: No such file or directory");
}

class Sink final : public TailSink {
 public:
  std::string received;
  bool refuse = false;
  bool acceptFollowedBytes(std::string_view bytes) override {
    if (refuse) return false;
    received += bytes;
    return true;
  }
};

struct Following {
  TempDir dir;
  std::filesystem::path file;
  dispatch::ManualMainQueue main;
  std::shared_ptr<Sink> sink = std::make_shared<Sink>();
  std::vector<std::string> events;
  std::unique_ptr<TailFollower> follower;

  explicit Following(const std::string& initial, persistence::FileIo& io = persistence::FileIo::system(),
                     std::function<uint64_t()> clock = nullptr) {
    file = dir.write("live.log", initial);
    TailFollower::Callbacks c;
    c.onRotationDetected = [this] { events.push_back("rotation"); };
    c.onTruncationDetected = [this] { events.push_back("truncation"); };
    c.onDeleted = [this] { events.push_back("deleted"); };
    c.onReadError = [this](int err) { events.push_back("error " + std::to_string(err)); };
    c.onLagChanged = [this](int64_t lag) { events.push_back("lag " + std::to_string(lag)); };
    follower = TailFollower::create(file, sink, static_cast<int64_t>(initial.size()), false, 1.0, main, c, io,
                                    std::move(clock))
                   .value();
    follower->start();
  }
};

TEST(TailFollower, DeliversAppendsExactlyAndReportsLagSparingly) {
  Following f("start\n");
  append(f.file, "one\ntwo\n");
  f.follower->poll();
  EXPECT_EQ(f.sink->received, "one\ntwo\n");
  f.sink->refuse = true;  // refused bytes are read again next time
  append(f.file, "three\n");
  f.follower->poll();
  f.sink->refuse = false;
  f.follower->poll();
  EXPECT_EQ(f.sink->received, "one\ntwo\nthree\n");
  EXPECT_EQ(f.follower->lastKnownLength(), 20);
  EXPECT_TRUE(f.events.empty());  // no lag to speak of

  // The timer polls once a second on the main queue.
  append(f.file, "four\n");
  f.main.advance(1'000'000'000);
  EXPECT_EQ(f.sink->received, "one\ntwo\nthree\nfour\n");
}

TEST(TailFollower, ReadCapAdaptsToHowLongReadsTake) {
  int64_t size = 0;
  uint64_t now = 0;
  uint64_t readCost = 0;
  FakeFileIo io;
  io.onFstat = [&](int fd, struct stat* st) {
    const int r = io.real.fstat(fd, st);
    st->st_size = size;
    return r;
  };
  io.onPread = [&](int, void* d, size_t n, off_t) -> ssize_t {
    now += readCost;
    std::memset(d, 'x', n);
    return static_cast<ssize_t>(n);
  };
  Following f("", io, [&] { return now; });
  std::vector<int64_t> caps;
  for (int i = 0; i < 4; ++i) {  // grows by exactly the cap, read fast: doubles up to the ceiling
    size += f.follower->readCap();
    f.follower->poll();
    caps.push_back(f.follower->readCap());
  }
  EXPECT_EQ(caps, (std::vector<int64_t>{64 << 20, 128 << 20, 128 << 20, 128 << 20}));
  f.sink->received.clear();
  readCost = 800'000'000;  // 0.8 s of a 1 s interval: halves, down to the floor
  caps.clear();
  for (int i = 0; i < 6; ++i) {
    size += 1 << 20;
    f.follower->poll();
    f.sink->received.clear();
    caps.push_back(f.follower->readCap());
  }
  EXPECT_EQ(caps, (std::vector<int64_t>{64 << 20, 32 << 20, 16 << 20, 8 << 20, 4 << 20, 4 << 20}));
}

TEST(TailFollower, TruncationRotationDeletionAndReadErrors) {
  {
    Following f("0123456789");
    std::filesystem::resize_file(f.file, 4);
    f.follower->poll();
    EXPECT_EQ(f.events, std::vector<std::string>{"truncation"});
    EXPECT_FALSE(f.follower->isFollowing());
  }
  {
    // Rename and recreate with unread bytes in the old file: drained first, then declared.
    Following f("a\n");
    append(f.file, "unread\n");
    std::filesystem::rename(f.file, f.dir.path() / "live.log.1");
    std::ofstream(f.file) << "new file\n";
    f.follower->poll();
    EXPECT_EQ(f.sink->received, "unread\n");
    EXPECT_EQ(f.events, std::vector<std::string>{"rotation"});
    EXPECT_EQ(f.follower->backlogAtRotation(), 0);
  }
  {
    // Missing for one poll, then back with a new inode: a rotation, not a deletion.
    Following f("a\n");
    std::filesystem::rename(f.file, f.dir.path() / "old");
    f.follower->poll();
    EXPECT_TRUE(f.events.empty());
    std::ofstream(f.file) << "b\n";
    f.follower->poll();
    EXPECT_EQ(f.events, std::vector<std::string>{"rotation"});
  }
  {
    Following f("a\n");
    std::filesystem::remove(f.file);
    f.follower->poll();
    EXPECT_TRUE(f.events.empty());
    f.follower->poll();
    EXPECT_EQ(f.events, std::vector<std::string>{"deleted"});
    EXPECT_EQ(f.follower->backlogAtDeletion(), 0);
  }
  {
    FakeFileIo io;
    Following f("a\n", io);
    io.onPread = [](int, void*, size_t, off_t) -> ssize_t {
      errno = EIO;
      return -1;
    };
    append(f.file, "b\n");
    f.follower->poll();
    f.follower->start();
    f.follower->poll();
    EXPECT_EQ(f.events, (std::vector<std::string>{"error 5", "error 5"}));  // a fresh start reports again
  }
}

TEST(TailFollower, LagIsReportedOnZeroCrossingsAndBigSteps) {
  int64_t size = 6;
  int budget = 0;
  FakeFileIo io;
  io.onFstat = [&](int fd, struct stat* st) {
    const int r = io.real.fstat(fd, st);
    st->st_size = size;
    budget = 1;
    return r;
  };
  io.onPread = [&](int, void* d, size_t, off_t) -> ssize_t {
    if (budget == 0) return 0;  // one byte per poll, then a short read: the rest stays as lag
    --budget;
    std::memset(d, 'x', 1);
    return 1;
  };
  Following f("start\n", io);
  size += 11;  // lag 10 after reading one byte
  f.follower->poll();
  size += 10;  // lag 19: a small change
  f.follower->poll();
  size += 2 << 20;  // a big one
  f.follower->poll();
  EXPECT_EQ(f.events, (std::vector<std::string>{"lag 10", "lag " + std::to_string(18 + (2 << 20))}));
}

}  // namespace
}  // namespace quorin::live
