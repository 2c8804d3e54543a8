#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <functional>
#include <thread>

#include "persistence/PatchJournal.h"
#include "persistence/PatchJournalRecovery.h"
#include "support/FakeFileIo.h"
#include "support/TempDir.h"

namespace quorin::persistence {
namespace {

using testing::FakeFileIo;

using Entry = PatchJournal::Entry;
using Recovery = PatchJournalRecovery;
using testing::TempDir;

using testing::readFile;

storage::FileIdentity identityOf(const std::filesystem::path& p) {
  return *storage::FileIdentity::ofPath(p.string());
}

TEST(PatchJournal, ByteLayoutAndRoundTrip) {
  const storage::FileIdentity id{0x0102, 7, 300, 1700000000, 5};
  const std::vector<Entry> entries = {{16, "abc", "xyz"}, {200, "", ""}};
  const std::string image = PatchJournal::encode("/t/é.log", id, entries);
  const std::string expectedHead = std::string("QRPJ") + std::string("\x02\0\0\0", 4) +
                                   std::string("\x09\0\0\0", 4) + "/t/\xC3\xA9.log" +
                                   std::string("\x02\x01\0\0\0\0\0\0", 8);
  EXPECT_EQ(image.substr(0, expectedHead.size()), expectedHead);
  EXPECT_EQ(image.size(), 4 + 4 + 4 + 9 + 5 * 8 + 4 + (8 + 4 + 3 + 4 + 3) + (8 + 4 + 4));

  TempDir dir;
  const auto url = PatchJournal::write("/t/é.log", id, entries, FileIo::system(), dir.path()).value().url;
  EXPECT_TRUE(url.filename().string().ends_with("-patchjournal"));
  EXPECT_EQ(url.filename().string().size(), 36 + 13);
  struct stat st;
  ASSERT_EQ(::stat(url.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  EXPECT_EQ(PatchJournal::read(url).value(), (PatchJournal::ParsedJournal{url, "/t/é.log", id, entries}));
  EXPECT_EQ(PatchJournal::listPending(dir.path()), std::vector<std::filesystem::path>{url});
  PatchJournal::remove(url);
  EXPECT_TRUE(PatchJournal::listPending(dir.path()).empty());
}

TEST(PatchJournal, EveryMalformationIsDetected) {
  const std::filesystem::path url = "/scratch/J-patchjournal";
  const std::string good = PatchJournal::encode("/f", {}, std::vector<Entry>{{1, "ab", "cd"}});
  for (size_t cut = 0; cut < good.size(); ++cut) {
    const auto r = PatchJournal::decode(std::string_view(good).substr(0, cut), url);
    ASSERT_FALSE(r) << cut;
    EXPECT_EQ(r.error().describe(), "patch journal truncated at J-patchjournal") << cut;
  }
  std::string bad = good;
  bad[0] = 'X';
  EXPECT_EQ(PatchJournal::decode(bad, url).error().describe(),
            "patch journal at /scratch/J-patchjournal has bad magic");
  for (char version : {'\x01', '\x03'}) {
    bad = good;
    bad[4] = version;
    EXPECT_EQ(PatchJournal::decode(bad, url).error().describe(),
              "patch journal at /scratch/J-patchjournal has unsupported version " + std::to_string(version));
  }
  bad = good;
  bad[13] = '\xFF';  // the path's second byte
  EXPECT_EQ(PatchJournal::decode(bad, url).error().kind, PatchJournalError::Kind::badPathEncoding);
}

TEST(PatchJournal, FailedWritesLeaveNoJournal) {
  TempDir dir;
  FakeFileIo io;
  io.onWrite = [](int, const void*, size_t) -> ssize_t { return 0; };
  EXPECT_EQ(PatchJournal::write("/f", {}, {}, io, dir.path()).error().describe(),
            "write failed for patch journal: Input/output error");
  io.onWrite = nullptr;
  io.onFsync = [](int) {
    errno = EIO;
    return -1;
  };
  EXPECT_EQ(PatchJournal::write("/f", {}, {}, io, dir.path()).error().describe(),
            "fsync failed for patch journal: Input/output error");
  EXPECT_TRUE(PatchJournal::listPending(dir.path()).empty());
  EXPECT_EQ(
      PatchJournal::write("/f", {}, {}, FileIo::system(), dir.path() / "missing" / "deeper").has_value(),
      true);
}

// A target of 3 regions, journaled, then left in the given per-region state.
struct Scenario {
  TempDir dir;
  std::filesystem::path target = dir.path() / "app.log";
  PatchJournal::ParsedJournal journal;

  explicit Scenario(const std::string& regionsNew) {
    std::string text = "aaaa|bbbb|cccc|";
    std::ofstream(target, std::ios::binary) << text;
    const std::vector<Entry> entries = {{0, "aaaa", "AAAA"}, {5, "bbbb", "BBBB"}, {10, "cccc", "CCCC"}};
    const auto written =
        PatchJournal::write(target.string(), identityOf(target), entries, FileIo::system(), dir.path());
    journal = PatchJournal::read(written.value().url).value();
    for (size_t i = 0; i < 3; ++i) {
      if (regionsNew[i] == 'N') text.replace(5 * i, 4, entries[i].insertedBytes);
      if (regionsNew[i] == 'X') text.replace(5 * i, 4, "????");
    }
    std::fstream(target, std::ios::binary | std::ios::in | std::ios::out) << text;
  }
};

TEST(PatchJournalRecovery, Verdicts) {
  EXPECT_EQ(Recovery::assess(Scenario("NNN").journal).verdict, Recovery::Verdict::completed);
  EXPECT_EQ(Recovery::assess(Scenario("OOO").journal).verdict, Recovery::Verdict::neverStarted);

  Scenario torn("NON");
  const auto a = Recovery::assess(torn.journal);
  EXPECT_EQ(a.verdict, Recovery::Verdict::torn);
  EXPECT_EQ(a.regions, (std::vector<std::optional<Recovery::RegionState>>{
                           Recovery::RegionState::matchesPostImage, Recovery::RegionState::matchesPreImage,
                           Recovery::RegionState::matchesPostImage}));
  EXPECT_EQ(*a.prompt,
            (RecoveryPrompt{"A save of \u201capp.log\u201d was interrupted",
                            "The file was left partially written (3 regions affected) — its content "
                            "currently matches neither the previous save nor the interrupted one. "
                            "Restore rolls it back to the last fully saved content.",
                            {"Restore", "Keep As-Is"},
                            0}));

  Scenario changed("NXO");
  const auto c = Recovery::assess(changed.journal);
  EXPECT_EQ(c.verdict, Recovery::Verdict::changedExternally);
  EXPECT_EQ(c.prompt->title, "Previous save may have been interrupted");
  EXPECT_EQ(c.prompt->buttons, (std::vector<std::string>{"Skip Restore", "Restore Anyway"}));
  EXPECT_EQ(c.prompt->defaultButton, 0u);
  EXPECT_NE(c.prompt->text.find("saving \u201capp.log\u201d, but the file's content no longer matches"),
            std::string::npos);

  // Replaced wholesale by a file that happens to look torn: not the same file.
  Scenario replaced("NON");
  const std::string bytes = readFile(replaced.target);
  std::ofstream(replaced.dir.path() / "copy", std::ios::binary) << bytes;
  std::filesystem::rename(replaced.dir.path() / "copy", replaced.target);  // a new inode, as a rotation makes
  EXPECT_EQ(Recovery::assess(replaced.journal).verdict, Recovery::Verdict::changedExternally);
}

TEST(PatchJournalRecovery, SilentCasesDeleteTheJournal) {
  Scenario done("NNN");
  EXPECT_EQ(Recovery::begin(done.journal), std::nullopt);
  EXPECT_FALSE(std::filesystem::exists(done.journal.url));

  Scenario gone("NON");
  std::filesystem::remove(gone.target);
  EXPECT_EQ(Recovery::assess(gone.journal).verdict, Recovery::Verdict::targetMissing);
  EXPECT_EQ(Recovery::begin(gone.journal), std::nullopt);
  EXPECT_FALSE(std::filesystem::exists(gone.journal.url));

  // Only a missing target makes the journal pointless; one that cannot be looked at now keeps it.
  Scenario looping("NON");
  std::filesystem::remove(looping.target);
  std::filesystem::create_symlink(looping.target, looping.target);  // stat: ELOOP
  const auto inaccessible = Recovery::assess(looping.journal);
  EXPECT_EQ(inaccessible.verdict, Recovery::Verdict::targetInaccessible);
  EXPECT_NE(inaccessible.problem.find("Too many levels of symbolic links"), std::string::npos);
  EXPECT_EQ(Recovery::begin(looping.journal), std::nullopt);
  EXPECT_TRUE(std::filesystem::exists(looping.journal.url));

  Scenario kept("NON");
  EXPECT_EQ(Recovery::respond(kept.journal, "Keep As-Is"), std::nullopt);
  EXPECT_FALSE(std::filesystem::exists(kept.journal.url));
  EXPECT_EQ(readFile(kept.target), "AAAA|bbbb|CCCC|");
}

TEST(PatchJournalRecovery, RestoreWritesEveryPreImageOrKeepsTheJournal) {
  Scenario s("NON");
  FakeFileIo interrupted;
  int calls = 0;
  interrupted.onPwrite = [&](int fd, const void* d, size_t n, off_t o) -> ssize_t {
    if (++calls == 1) {
      errno = EINTR;
      return -1;
    }
    return FileIo::system().pwrite(fd, d, n < 2 ? n : 2, o);  // short writes: the loop finishes them
  };
  EXPECT_EQ(Recovery::respond(s.journal, "Restore", interrupted), std::nullopt);
  EXPECT_EQ(readFile(s.target), "aaaa|bbbb|cccc|");
  EXPECT_FALSE(std::filesystem::exists(s.journal.url));

  for (ssize_t failure : {ssize_t{0}, ssize_t{-1}}) {
    Scenario f("NON");
    FakeFileIo failing;
    failing.onPwrite = [&](int, const void*, size_t, off_t) -> ssize_t {
      errno = EROFS;
      return failure;
    };
    const auto prompt = Recovery::respond(f.journal, "Restore Anyway", failing);
    ASSERT_TRUE(prompt);
    EXPECT_EQ(prompt->title, "Couldn't restore \u201capp.log\u201d");
    EXPECT_EQ(prompt->buttons, std::vector<std::string>{"OK"});
    EXPECT_TRUE(std::filesystem::exists(f.journal.url));  // offered again at the next launch
  }
}

// A journal whose save still runs is not the remains of a crash: recovery and
// rollback, from another descriptor or thread, leave it and the file alone.
TEST(PatchJournalRecovery, LeavesTheJournalOfARunningSaveAlone) {
  Scenario s("NON");
  const std::string torn = readFile(s.target);
  auto live = PatchJournal::lock(s.journal.url).value();  // as the saver holds it
  std::optional<RecoveryPrompt> prompt = RecoveryPrompt{};
  bool rolledBack = true;
  std::thread([&] {
    prompt = Recovery::begin(s.journal);
    rolledBack = Recovery::rollBack(s.journal);
    Recovery::respond(s.journal, "Keep As-Is");
  }).join();
  EXPECT_EQ(prompt, std::nullopt);
  EXPECT_FALSE(rolledBack);
  EXPECT_TRUE(std::filesystem::exists(s.journal.url));
  EXPECT_EQ(readFile(s.target), torn);
  EXPECT_EQ(PatchJournal::lock(s.journal.url).error().kind, PatchJournal::LockFailure::Kind::inUse);

  { [[maybe_unused]] auto released = std::move(live); }  // the save ends
  ASSERT_TRUE(Recovery::begin(s.journal));
  EXPECT_TRUE(Recovery::rollBack(s.journal));
  EXPECT_EQ(readFile(s.target), "aaaa|bbbb|cccc|");
  EXPECT_EQ(PatchJournal::lock(s.journal.url).error().kind, PatchJournal::LockFailure::Kind::gone);
}

}  // namespace
}  // namespace quorin::persistence
