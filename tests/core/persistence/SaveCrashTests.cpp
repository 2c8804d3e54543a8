#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdlib>

#include "persistence/PatchJournal.h"
#include "persistence/PatchJournalRecovery.h"
#include "persistence/SaveCoordinator.h"
#include "persistence/SaveTestSupport.h"

extern char** environ;

namespace quorin::persistence {
namespace {

using testing::FakeFileIo;
using testing::TempDir;

// Runs this test program's `filter` in a child with `env` added and returns
// how it ended (as waitpid reports it).
int runChild(const std::string& filter, const std::vector<std::string>& extraEnv) {
  const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
  std::vector<char*> env;
  for (char** e = environ; *e != nullptr; ++e) env.push_back(*e);
  for (const std::string& e : extraEnv) env.push_back(const_cast<char*>(e.c_str()));
  env.push_back(nullptr);
  const std::string filterArg = "--gtest_filter=" + filter;
  const char* argv[] = {self.c_str(), filterArg.c_str(), nullptr};
  pid_t child = 0;
  if (::posix_spawn(&child, self.c_str(), nullptr, nullptr, const_cast<char**>(argv), env.data()) != 0)
    return -1;
  int status = 0;
  ::waitpid(child, &status, 0);
  return status;
}

bool killed(int status) { return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL; }

std::vector<std::filesystem::path> saveDirectoriesIn(const std::filesystem::path& dir) {
  std::vector<std::filesystem::path> found;
  for (const auto& item : std::filesystem::directory_iterator(dir)) {
    if (item.path().filename().string().starts_with(".quorin-save-")) found.push_back(item.path());
  }
  return found;
}

// Run in a child process by the test below: patch 3 regions and die (SIGKILL)
// between the first and the second pwrite, as a crash or a power cut would.
TEST(SaveCrashChild, PatchAndDieBetweenWrites) {
  const char* target = std::getenv("QUORIN_CRASH_TARGET");
  if (target == nullptr) GTEST_SKIP() << "only run as the crash test's child";
  FakeFileIo io;
  int writes = 0;
  io.onPwrite = [&](int fd, const void* d, size_t n, off_t o) -> ssize_t {
    if (++writes == 2) ::raise(SIGKILL);
    return io.real.pwrite(fd, d, n, o);
  };
  const std::vector<PatchEdit> edits = {{0, "aaaa", "AAAA"}, {5, "bbbb", "BBBB"}, {10, "cccc", "CCCC"}};
  SaveCoordinator(io, VolumeInfo::system(), std::getenv("QUORIN_CRASH_JOURNALS"))
      .tryInPlacePatch(target, edits, *storage::FileIdentity::ofPath(target), 0);
}

TEST(SaveCrash, KilledPatchLeavesATornFileThatRestoresExactly) {
  TempDir dir;
  const std::string original = "aaaa|bbbb|cccc|";
  const auto file = dir.write("app.log", original);
  ASSERT_TRUE(killed(
      runChild("SaveCrashChild.PatchAndDieBetweenWrites",
               {"QUORIN_CRASH_TARGET=" + file.string(), "QUORIN_CRASH_JOURNALS=" + dir.path().string()})));

  const auto journals = PatchJournal::listPending(dir.path());
  ASSERT_EQ(journals.size(), 1u);
  const auto journal = PatchJournal::read(journals[0]).value();
  const auto prompt = PatchJournalRecovery::begin(journal);
  ASSERT_TRUE(prompt);
  EXPECT_NE(prompt->text.find("(3 regions affected)"), std::string::npos);
  EXPECT_EQ(PatchJournalRecovery::respond(journal, prompt->buttons[prompt->defaultButton]), std::nullopt);
  EXPECT_EQ(readFile(file), original);
  EXPECT_TRUE(PatchJournal::listPending(dir.path()).empty());
}

// Run in a child by the test below: a rewrite killed just before its rename.
TEST(SaveCrashChild, RewriteAndDieBeforeTheRename) {
  const char* target = std::getenv("QUORIN_REWRITE_TARGET");
  if (target == nullptr) GTEST_SKIP() << "only run as the crash test's child";
  FakeFileIo io;
  io.onRename = [](const char*, const char*) { return ::raise(SIGKILL); };
  const storage::PieceTable table(storage::OriginalBuffer::make(storage::MMapWrapper::open(target).value()));
  SaveCoordinator(io).atomicRewrite(target, table.snapshot(), nullptr);
}

TEST(SaveCrash, AKilledRewriteLeavesADirectoryTheNextSaveRemoves) {
  Case c(std::string(1000, 'x'));
  ASSERT_TRUE(killed(
      runChild("SaveCrashChild.RewriteAndDieBeforeTheRename", {"QUORIN_REWRITE_TARGET=" + c.file.string()})));
  const auto left = saveDirectoriesIn(c.dir.path());
  ASSERT_EQ(left.size(), 1u);
  EXPECT_EQ(readFile(left[0] / c.file.filename()),
            std::string(1000, 'x'));  // a whole copy of the user's file

  c.edit(0, "y");
  c.edits.clear();
  ASSERT_TRUE(SaveCoordinator(FileIo::system(), VolumeInfo::system(), c.dir.path()).save(c.job()));
  EXPECT_TRUE(saveDirectoriesIn(c.dir.path()).empty());
  EXPECT_EQ(readFile(c.file), "y" + std::string(999, 'x'));
}

}  // namespace
}  // namespace quorin::persistence
