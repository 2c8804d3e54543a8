#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <thread>

#include "persistence/PatchJournal.h"
#include "persistence/PatchJournalRecovery.h"
#include "persistence/SaveDirectory.h"
#include "persistence/SaveTestSupport.h"

extern char** environ;

namespace quorin::persistence {
namespace {

using testing::FakeFileIo;
using testing::TempDir;
using K = InPlaceRejection::Kind;

const std::string kMark = "\xEF\xBB\xBF";

SaveCoordinator coordinatorFor(const Case& c, FileIo& io = FileIo::system()) {
  return SaveCoordinator(io, VolumeInfo::system(), c.dir.path());
}

// The document begins after the mark, so its offsets are the file's less 3:
// a patch that fails after touching the file keeps a journal in file
// offsets, locked until the save ends.
TEST(SaveByteOrderMark, AFailedPatchJournalsInFileOffsets) {
  Case c(kMark + "abcabcabcQ");
  c.edit(6, "XYZ");
  FakeFileIo io;
  std::optional<PatchJournal::LockFailure::Kind> lockDuringRewrite;
  io.onFsync = [&](int fd) {
    struct stat st;
    return ::fstat(fd, &st) == 0 && st.st_ino == c.opened.inode ? failWith(EIO) : io.real.fsync(fd);
  };
  io.onRename = [&](const char* from, const char* to) {
    const auto lock = PatchJournal::lock(PatchJournal::listPending(c.dir.path()).at(0));
    if (!lock) lockDuringRewrite = lock.error().kind;
    return io.real.rename(from, to);
  };
  const auto result = coordinatorFor(c, io).save(c.job()).value();
  EXPECT_EQ(result.outcome.rejection->kind, K::fsyncFailed);
  EXPECT_EQ(lockDuringRewrite, PatchJournal::LockFailure::Kind::inUse);
  EXPECT_EQ(readFile(c.file), kMark + "abcabcXYZQ");
  const auto journal = PatchJournal::read(PatchJournal::listPending(c.dir.path()).at(0)).value();
  EXPECT_EQ(journal.entries, (std::vector<PatchJournal::Entry>{{9, "abc", "XYZ"}}));
  EXPECT_EQ(PatchJournalRecovery::assess(journal).verdict, PatchJournalRecovery::Verdict::completed);
}

// A source cut short underneath (Keep Mine after an outside truncation) reads
// short; the save must fail rather than replace the file with less.
TEST(SaveRewrite, ASourceCutShortFailsAndLeavesTheTarget) {
  for (const bool kernelCopy : {true, false}) {
    SCOPED_TRACE(kernelCopy);
    Case c(std::string(100, '-'));
    c.edit(50, "ab");
    c.edits.clear();
    std::filesystem::resize_file(c.source(), 40);
    FakeFileIo io;
    if (!kernelCopy) io.onCopy = [](int, off_t*, int, size_t) -> ssize_t { return failWith(EXDEV); };
    const auto result = coordinatorFor(c, io).save(c.job());
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().describe(), "save failed: only 42 of 100 bytes of the text could be read");
    EXPECT_EQ(readFile(c.file), std::string(100, '-'));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(c.dir.path()), {}), 2);
  }
}

// The calls that make a save durable, in the order they were made, each
// with the kind of file it concerned.
struct CallLog {
  FakeFileIo io;
  std::map<int, std::string> kinds;  // descriptor → "journal", "temp", "dir", "target"
  std::vector<std::string> calls;

  CallLog() {
    io.onOpen = [this](const char* path, int flags, mode_t mode) {
      const int fd = io.real.open(path, flags, mode);
      const std::string p(path);
      kinds[fd] = p.ends_with("-patchjournal")                   ? "journal"
                  : p.find(".quorin-save-") != std::string::npos ? "temp"
                  : std::filesystem::is_directory(p)             ? "dir"
                                                                 : "target";
      return fd;
    };
    io.onFsync = [this](int fd) {
      calls.push_back("fsync " + kinds[fd]);
      return io.real.fsync(fd);
    };
    io.onPwrite = [this](int fd, const void* d, size_t n, off_t o) {
      calls.push_back("pwrite " + kinds[fd]);
      return io.real.pwrite(fd, d, n, o);
    };
    io.onFchmod = [this](int fd, mode_t mode) {
      calls.push_back("fchmod " + kinds[fd]);
      return io.real.fchmod(fd, mode);
    };
    io.onRename = [this](const char* from, const char* to) {
      calls.push_back("rename");
      return io.real.rename(from, to);
    };
  }
  ptrdiff_t first(const std::string& call) const {
    const auto it = std::find(calls.begin(), calls.end(), call);
    EXPECT_NE(it, calls.end()) << call;
    return it - calls.begin();
  }
};

TEST(SaveDurability, JournalBeforeThePatchAndTheDirectoryAfterTheRename) {
  Case patched;
  patched.edit(10, "HELLO");
  CallLog patch;
  ASSERT_EQ(coordinatorFor(patched, patch.io).save(patched.job())->outcome.strategy,
            SaveStrategy::inPlacePatch);
  EXPECT_LT(patch.first("fsync journal"), patch.first("pwrite target"));
  EXPECT_LT(patch.first("fsync dir"), patch.first("pwrite target"));  // the journal's name, too
  EXPECT_LT(patch.first("pwrite target"), patch.first("fsync target"));

  Case rewritten;
  rewritten.edit(10, "HELLO");
  rewritten.edits.clear();
  CallLog rewrite;
  ASSERT_TRUE(coordinatorFor(rewritten, rewrite.io).save(rewritten.job()));
  EXPECT_LT(rewrite.first("fchmod temp"), rewrite.first("fsync temp"));  // the flush covers the mode
  EXPECT_LT(rewrite.first("fsync temp"), rewrite.first("rename"));
  EXPECT_LT(rewrite.first("rename"), rewrite.first("fsync dir"));
}

// Another editor or `quorin-cli recover` looking at the journal between its
// flush and the first pwrite sees all pre-images ("never started"): it must
// see the lock instead and leave the journal and the file alone.
TEST(SaveInPlace, RecoveryRacingTheSaveLeavesItsJournalAlone) {
  Case c;
  c.edit(10, "HELLO");
  FakeFileIo io;
  size_t journalsSeen = 0;
  bool journalKept = false;
  bool rolledBack = true;
  io.onPwrite = [&](int fd, const void* d, size_t n, off_t o) -> ssize_t {
    if (journalsSeen == 0) {
      std::thread([&] {
        for (const auto& url : PatchJournal::listPending(c.dir.path())) {
          ++journalsSeen;
          const auto journal = PatchJournal::read(url).value();
          EXPECT_EQ(PatchJournalRecovery::begin(journal), std::nullopt);
          journalKept = std::filesystem::exists(url);
          rolledBack = PatchJournalRecovery::rollBack(journal);
        }
      }).join();
    }
    return io.real.pwrite(fd, d, n, o);
  };
  EXPECT_EQ(coordinatorFor(c, io).save(c.job())->outcome.strategy, SaveStrategy::inPlacePatch);
  EXPECT_EQ(journalsSeen, 1u);
  EXPECT_TRUE(journalKept);
  EXPECT_FALSE(rolledBack);
  EXPECT_EQ(readFile(c.file), c.expected());
  EXPECT_TRUE(PatchJournal::listPending(c.dir.path()).empty());
}

// The id of a process that has ended (spawned rather than forked: forking a
// threaded test program is unsafe under the sanitizers).
pid_t goneProcess() {
  pid_t child = 0;
  const char* argv[] = {"true", nullptr};
  EXPECT_EQ(::posix_spawnp(&child, "true", nullptr, nullptr, const_cast<char**>(argv), environ), 0);
  ::waitpid(child, nullptr, 0);
  return child;
}

std::string hostName() {
  char name[256] = {};
  ::gethostname(name, sizeof name - 1);
  return name;
}

TEST(SaveDirectories, OnlyThoseOfGoneProcessesOnThisHostAreRemoved) {
  TempDir dir;
  const std::string gone = std::to_string(goneProcess());
  const std::string host = hostName();
  auto make = [&](const std::string& name) {
    std::filesystem::create_directory(dir.path() / name);
    std::ofstream(dir.path() / name / "app.log") << "partial";
    return dir.path() / name;
  };
  const auto abandoned = make(".quorin-save-" + gone + "@" + host + "-a1B2c3");
  const auto running = make(".quorin-save-" + std::to_string(::getpid()) + "@" + host + "-d4E5f6");
  const auto elsewhere = make(".quorin-save-" + gone + "@another.host-g7H8i9");
  const auto unknownOwner = make(".quorin-save-J1k2L3");
  const auto target = make("kept");
  const auto link = dir.path() / (".quorin-save-" + gone + "@" + host + "-m4N5o6");
  std::filesystem::create_directory_symlink(target, link);

  removeAbandonedSaveDirectories(dir.path());
  EXPECT_FALSE(std::filesystem::exists(abandoned));
  for (const auto& kept : {running, elsewhere, unknownOwner, target / "app.log"})
    EXPECT_TRUE(std::filesystem::exists(kept)) << kept;
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  removeAbandonedSaveDirectories(dir.path() / "missing");  // nothing to do, nothing thrown

  EXPECT_EQ(SaveDirectory::ownerOf(".quorin-save-12@a-b.c-XyZ123"), (SaveDirectory::Owner{12, "a-b.c"}));
  EXPECT_EQ(SaveDirectory::ownerOf(".quorin-save-x@host-XyZ123"), std::nullopt);
}

}  // namespace
}  // namespace quorin::persistence
