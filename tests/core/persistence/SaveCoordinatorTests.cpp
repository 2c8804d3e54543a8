#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <functional>

#include "persistence/PatchJournal.h"
#include "persistence/SaveCoordinator.h"
#include "persistence/SaveTestSupport.h"

namespace quorin::persistence {
namespace {

using testing::FakeFileIo;
using testing::TempDir;
using K = InPlaceRejection::Kind;

TEST(SaveEditList, MergesDeleteThenInsertAndFlattensBatches) {
  const UndoEntry del{.docOffsetAtEdit = 8, .originalBytes = sharedBytes("abc")};
  const UndoEntry ins{.docOffsetAtEdit = 8, .insertedBytes = sharedBytes("xyz")};
  const UndoEntry rep{
      .docOffsetAtEdit = 20, .originalBytes = sharedBytes("q"), .insertedBytes = sharedBytes("r")};
  const UndoEntry batch{.isBatch = true, .batchSubEdits = {rep, rep}};
  const std::vector<UndoEntry> entries = {del, ins, batch, del};
  EXPECT_EQ(SaveCoordinator::buildEditList(entries),
            (std::vector<PatchEdit>{{8, "abc", "xyz"}, {20, "q", "r"}, {20, "q", "r"}, {8, "abc", ""}}));
}

// Every reason not to patch leads to a rewrite with exactly the document's bytes.
TEST(SaveInPlace, EveryRejectionFallsBackToAByteExactRewrite) {
  struct Scenario {
    K expected;
    std::function<void(Case&, FakeFileIo&, FakeVolumes&, SaveJob&)> arrange;
  };
  const std::vector<Scenario> scenarios = {
      {K::noUnsavedEdits, [](Case&, FakeFileIo&, FakeVolumes&, SaveJob& j) { j.edits.clear(); }},
      {K::tooManyRegions,
       [](Case& c, FakeFileIo&, FakeVolumes&, SaveJob& j) {
         for (int i = 0; i < 999; ++i) c.edit(i * 4, "x");
         j = c.job();
       }},
      {K::lengthChangingEdit,
       [](Case&, FakeFileIo&, FakeVolumes&, SaveJob& j) {
         j.edits.push_back({0, "..", "."});
       }},
      {K::nonLocalVolume, [](Case&, FakeFileIo&, FakeVolumes& v, SaveJob&) { v.local = false; }},
      {K::openRdwrFailed,
       [](Case& c, FakeFileIo& io, FakeVolumes&, SaveJob&) {
         io.onOpen = [&c, &io](const char* p, int f, mode_t m) {
           return p == c.file.string() && (f & O_RDWR) ? failWith(EACCES) : io.real.open(p, f, m);
         };
       }},
      {K::fstatFailed, [](Case&, FakeFileIo& io, FakeVolumes&,
                          SaveJob&) { io.onFstat = [](int, struct stat*) { return failWith(EIO); }; }},
      {K::identityMismatch,
       [](Case& c, FakeFileIo&, FakeVolumes&, SaveJob&) {  // rotated: a new file under the same name
         const std::string bytes = readFile(c.file);
         std::ofstream(c.dir.path() / "new", std::ios::binary) << bytes;
         std::filesystem::rename(c.dir.path() / "new", c.file);
       }},
      {K::preImageMismatch,
       [](Case& c, FakeFileIo&, FakeVolumes&, SaveJob&) {  // changed by another program, mtime put back
         std::fstream(c.file, std::ios::binary | std::ios::in | std::ios::out) << std::string(20, '#');
         const timespec times[2] = {{0, UTIME_OMIT}, {c.opened.mtimeSeconds, c.opened.mtimeNanoseconds}};
         ::utimensat(AT_FDCWD, c.file.c_str(), times, 0);
       }},
      {K::preReadFailed,
       [](Case& c, FakeFileIo&, FakeVolumes&, SaveJob& j) {
         j.edits.push_back({static_cast<uint64_t>(5000), "ab", "cd"});
         (void)c;
       }},
      {K::journalWriteFailed,
       [](Case&, FakeFileIo& io, FakeVolumes&, SaveJob&) {
         io.onOpen = [&io](const char* p, int f, mode_t m) {
           return std::string(p).ends_with("-patchjournal") ? failWith(ENOSPC) : io.real.open(p, f, m);
         };
       }},
      {K::partialPwrite,
       [](Case&, FakeFileIo& io, FakeVolumes&, SaveJob&) {
         io.onPwrite = [&io](int fd, const void* d, size_t n, off_t o) -> ssize_t {
           return n > 2 ? io.real.pwrite(fd, d, 2, o) : 0;  // two bytes, then a write of nothing
         };
       }},
      {K::fsyncFailed,
       [](Case& c, FakeFileIo& io, FakeVolumes&, SaveJob&) {
         io.onFsync = [&c, &io](int fd) {
           struct stat st;
           const bool isTarget = ::fstat(fd, &st) == 0 && st.st_ino == c.opened.inode;
           return isTarget ? failWith(EIO) : io.real.fsync(fd);
         };
       }},
  };
  for (const Scenario& s : scenarios) {
    Case c;
    c.edit(10, "HELLO");
    FakeFileIo io;
    FakeVolumes volumes;
    SaveJob job = c.job();
    s.arrange(c, io, volumes, job);
    SCOPED_TRACE(static_cast<int>(s.expected));
    SaveCoordinator coordinator(io, volumes, c.dir.path());
    const auto result = coordinator.save(job);
    ASSERT_TRUE(result) << result.error().describe();
    EXPECT_EQ(result->outcome.strategy, SaveStrategy::atomicRewrite);
    ASSERT_TRUE(result->outcome.rejection);
    EXPECT_EQ(result->outcome.rejection->kind, s.expected) << result->outcome.rejection->describe();
    EXPECT_EQ(readFile(c.file), c.expected());
  }
}

TEST(SaveInPlace, CapsAtTheirExactBoundaries) {
  {
    Case c;
    for (int i = 0; i < 999; ++i) c.edit(i * 4, "x");
    EXPECT_EQ(
        SaveCoordinator(FileIo::system(), VolumeInfo::system(), c.dir.path()).save(c.job())->outcome.strategy,
        SaveStrategy::inPlacePatch);
    c.edit(3999, "y");
    const auto r =
        SaveCoordinator(FileIo::system(), VolumeInfo::system(), c.dir.path()).save(c.job()).value();
    EXPECT_EQ(r.outcome.rejection->describe(), "too many edited regions (1000 \u2265 1000)");
  }
  Case big(std::string(SaveCoordinator::kMaxRegionBytes + 1, 'a'));
  big.edit(0, std::string(SaveCoordinator::kMaxRegionBytes, 'b'));
  EXPECT_EQ(SaveCoordinator(FileIo::system(), VolumeInfo::system(), big.dir.path())
                .tryInPlacePatch(big.file.string(), big.edits, big.opened, 0)
                .has_value(),
            true);
  const std::vector<PatchEdit> tooBig = {{0, std::string(SaveCoordinator::kMaxRegionBytes + 1, 'b'),
                                          std::string(SaveCoordinator::kMaxRegionBytes + 1, 'c')}};
  EXPECT_EQ(SaveCoordinator().tryInPlacePatch(big.file.string(), tooBig, big.opened, 0).error().describe(),
            "edit #0 is 8388609B \u2014 over the in-place region cap");
}

TEST(SaveRewrite, FailuresLeaveTheTargetByteIdentical) {
  const std::vector<std::pair<std::string, std::function<void(FakeFileIo&, FakeVolumes&)>>> failures = {
      {"write failed during save: No space left on device",
       [](FakeFileIo& io, FakeVolumes&) {
         io.onWrite = [](int, const void*, size_t) -> ssize_t { return failWith(ENOSPC); };
         io.onCopy = [](int, off_t*, int, size_t) -> ssize_t { return failWith(ENOSPC); };
       }},
      {"write failed during save: Input/output error",  // a kernel that cannot copy: buffered, then failing
       [](FakeFileIo& io, FakeVolumes&) {
         io.onCopy = [](int, off_t*, int, size_t) -> ssize_t { return failWith(EXDEV); };
         io.onWrite = [](int, const void*, size_t) -> ssize_t { return failWith(EIO); };
       }},
      {"fsync failed during save: Input/output error",
       [](FakeFileIo& io, FakeVolumes&) { io.onFsync = [](int) { return failWith(EIO); }; }},
      {"rename failed during save: Permission denied",
       [](FakeFileIo& io, FakeVolumes&) {
         io.onRename = [](const char*, const char*) { return failWith(EACCES); };
       }},
      {"not enough disk space: need 110 bytes, 109 available",
       [](FakeFileIo&, FakeVolumes& v) { v.available = 109; }},
      {"open(",  // the new file, in the private directory
       [](FakeFileIo& io, FakeVolumes&) {
         io.onOpen = [&io](const char* p, int f, mode_t m) {
           return std::string(p).find(".quorin-save-") != std::string::npos ? failWith(EACCES)
                                                                            : io.real.open(p, f, m);
         };
       }},
  };
  for (const auto& [message, arrange] : failures) {
    Case c(std::string(100, '-'));
    c.edit(0, "ab");
    c.edits.clear();  // nothing to patch: straight to the rewrite
    FakeFileIo io;
    FakeVolumes volumes;
    arrange(io, volumes);
    const auto result = SaveCoordinator(io, volumes, c.dir.path()).save(c.job());
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().describe().substr(0, message.size()), message);
    EXPECT_EQ(readFile(c.file), std::string(100, '-'));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(c.dir.path()), {}),
              2);  // target + the table's copy
  }
}

TEST(SaveRewrite, KeepsModeAndSavesThroughSymbolicLinks) {
  Case c;
  c.edit(0, "abc");
  ::chmod(c.file.c_str(), 0640);
  const auto link = c.dir.path() / "link.log";
  std::filesystem::create_symlink(c.file, link);
  SaveJob job = c.job();
  job.targetPath = link.string();
  job.edits.clear();
  ASSERT_TRUE(SaveCoordinator().save(job));
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(readFile(c.file), c.expected());
  struct stat st;
  ::stat(c.file.c_str(), &st);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
}

}  // namespace
}  // namespace quorin::persistence
