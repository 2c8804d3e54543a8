#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>

#include "CliTestSupport.h"
#include "recovery/RecoveryJournal.h"
#include "storage/FileIdentity.h"
#include "storage/ScratchDirectory.h"
#include "support/TempDir.h"

namespace quorin::cli {
namespace {

struct DataHome {
  testing::TempDir dir;
  DataHome() { ::setenv("XDG_DATA_HOME", dir.path().c_str(), 1); }
  ~DataHome() { ::unsetenv("XDG_DATA_HOME"); }
};

TEST(UnsavedCommandTest, ListsJournalsAndRestoresToANewFileOnlyOverTheirOwnBase) {
  const DataHome home;
  const testing::TempDir dir;
  const auto file = dir.write("app.log", "alpha\nbeta\n");
  const auto id = storage::FileIdentity::ofPath(file.string()).value();
  const recovery::JournalHeader header{.path = file.string(),
                                       .device = id.device,
                                       .inode = id.inode,
                                       .size = id.size,
                                       .mtimeSeconds = id.mtimeSeconds,
                                       .mtimeNanos = id.mtimeNanoseconds,
                                       .encoding = "utf8",
                                       .lineEnding = "lf",
                                       .openMode = "whole"};
  std::string journalPath;
  {
    auto journal = recovery::RecoveryJournal::create(storage::ScratchDirectory::root().value(), header,
                                                     persistence::FileIo::system());
    ASSERT_TRUE(journal);
    ASSERT_TRUE(journal->append({{0, 5, "ALPHA"}}));
    ASSERT_TRUE(journal->append({{6, 0, "gamma\n"}, {17, 0, "delta\n"}}));
    journalPath = journal->path().string();
  }  // the editor is gone: its lock with it

  EXPECT_EQ(
      run({"recover", "--unsaved"}),
      (Outcome{0, journalPath + "\t" + file.string() + "\t3 edits in 2 records\tfile unchanged\n", ""}));
  const std::string restored = (dir.path() / "restored.log").string();
  EXPECT_EQ(run({"recover", "--restore-to", restored, journalPath}), (Outcome{0, "", ""}));
  std::ifstream in(restored);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "ALPHA\ngamma\nbeta\ndelta\n");
  EXPECT_EQ(run({"recover", "--restore-to", file.string(), journalPath}).status, 2);

  std::ofstream(file, std::ios::app) << "more\n";
  EXPECT_EQ(run({"recover", "--restore-to", restored + "2", journalPath}),
            (Outcome{2, "",
                     "quorin-cli: " + file.string() +
                         " changed since its edits were journaled: they cannot be applied to it\n"}));
  EXPECT_TRUE(run({"recover", "--unsaved", "--json"}).out.contains("\"base\":\"changed\""));
}

}  // namespace
}  // namespace quorin::cli
