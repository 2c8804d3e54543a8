#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <thread>

#include "CliTestSupport.h"
#include "persistence/PatchJournal.h"
#include "support/TempDir.h"

namespace quorin::cli {
namespace {

TEST(CliRecover, ListsTornSavesAndRestoresThem) {
  testing::TempDir dir;
  const auto file = dir.write("app.log", "AAAA|bbbb|");  // first region new, second old: torn
  const auto identity = *storage::FileIdentity::ofPath(file.string());
  const std::vector<persistence::PatchJournal::Entry> entries = {{0, "aaaa", "AAAA"}, {5, "bbbb", "BBBB"}};
  const auto journal = persistence::PatchJournal::write(file.string(), identity, entries).value().url;

  Outcome r = run({"recover"});
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("  target: " + file.string() + "\n  regions: 2\n  verdict: torn"), std::string::npos)
      << r.out;
  EXPECT_TRUE(std::filesystem::exists(journal));  // listing changes nothing

  r = run({"recover", "--restore", journal.string()});
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("  restored\n"), std::string::npos);
  EXPECT_EQ(testing::readFile(file), "aaaa|bbbb|");
  EXPECT_FALSE(std::filesystem::exists(journal));
  r = run({"recover"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "no pending patch journals\n");
}

TEST(CliRecover, SkipsTheJournalOfARunningSave) {
  testing::TempDir dir;
  const auto file = dir.write("app.log", "AAAA|bbbb|");
  const std::vector<persistence::PatchJournal::Entry> entries = {{0, "aaaa", "AAAA"}, {5, "bbbb", "BBBB"}};
  // Held as the saver holds it, from the journal's creation to the end of the save.
  const auto live =
      persistence::PatchJournal::write(file.string(), *storage::FileIdentity::ofPath(file.string()), entries)
          .value();
  const Outcome r = run({"recover", "--restore"});
  EXPECT_EQ(r, (Outcome{0, live.url.string() + "\n  skipped: in use by a running save\n", ""}));
  EXPECT_EQ(testing::readFile(file), "AAAA|bbbb|");
  EXPECT_TRUE(std::filesystem::exists(live.url));
  persistence::PatchJournal::remove(live.url);
}

TEST(CliFollow, PrintsAppendsUntilTheFileIsDeleted) {
  testing::TempDir dir;
  const auto file = dir.write("live.log", "old\n");
  std::ostringstream out, err;
  std::thread writer([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    std::ofstream(file, std::ios::app) << "new\n";
    std::this_thread::sleep_for(std::chrono::milliseconds(1200));
    std::filesystem::remove(file);
  });
  const std::vector<std::string> args = {"follow", file.string()};
  EXPECT_EQ(runCli(args, out, err), 0);
  writer.join();
  EXPECT_EQ(out.str(), "new\n");
  EXPECT_EQ(err.str(), "quorin-cli: " + file.string() + " was deleted\n");
}

}  // namespace
}  // namespace quorin::cli
