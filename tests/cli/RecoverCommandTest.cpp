#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <thread>

#include "Cli.h"
#include "persistence/PatchJournal.h"
#include "support/TempDir.h"

namespace quorin::cli {
namespace {

int run(std::vector<std::string> args, std::string& out, std::string& err) {
  std::ostringstream o, e;
  const int status = runCli(args, o, e);
  out = o.str();
  err = e.str();
  return status;
}

TEST(CliRecover, ListsTornSavesAndRestoresThem) {
  testing::TempDir dir;
  const auto file = dir.write("app.log", "AAAA|bbbb|");  // first region new, second old: torn
  const auto identity = *storage::FileIdentity::ofPath(file.string());
  const std::vector<persistence::PatchJournal::Entry> entries = {{0, "aaaa", "AAAA"}, {5, "bbbb", "BBBB"}};
  const auto journal = persistence::PatchJournal::write(file.string(), identity, entries).value();

  std::string out, err;
  EXPECT_EQ(run({"recover"}, out, err), 0);
  EXPECT_NE(out.find("  target: " + file.string() + "\n  regions: 2\n  verdict: torn"), std::string::npos) << out;
  EXPECT_TRUE(std::filesystem::exists(journal));  // listing changes nothing

  EXPECT_EQ(run({"recover", "--restore", journal.string()}, out, err), 0);
  EXPECT_NE(out.find("  restored\n"), std::string::npos);
  std::ifstream in(file);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "aaaa|bbbb|");
  EXPECT_FALSE(std::filesystem::exists(journal));
  EXPECT_EQ(run({"recover"}, out, err), 0);
  EXPECT_EQ(out, "no pending patch journals\n");
  EXPECT_EQ(run({"recover", "--restore", "--discard"}, out, err), 2);
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
