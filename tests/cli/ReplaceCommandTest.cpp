#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "Cli.h"
#include "support/TempDir.h"

namespace quorin::cli {
namespace {

std::string contents(const std::filesystem::path& p) {
  std::ifstream in(p, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

int run(std::vector<std::string> args, std::string& out, std::string& err) {
  std::ostringstream o, e;
  const int status = runCli(args, o, e);
  out = o.str();
  err = e.str();
  return status;
}

TEST(CliReplace, SameLengthPatchesInPlaceOtherwiseRewrites) {
  testing::TempDir dir;
  const auto file = dir.write("app.log", "user=alice id=1\nuser=bob id=2\nuser=alice id=3\n");
  std::string out, err;
  EXPECT_EQ(run({"replace", "alice", "carol", file.string()}, out, err), 0);
  EXPECT_EQ(out, "replaced: 2\nstrategy: inPlacePatch\n");
  EXPECT_EQ(run({"replace", "--regex", "-i", "BOB|id=3", "x", file.string()}, out, err), 0);
  EXPECT_EQ(out, "replaced: 2\nstrategy: atomicRewrite\n"
                 "in-place patch rejected: edit #0 is not length-preserving (original 3B, inserted 1B)\n");
  EXPECT_EQ(contents(file), "user=carol id=1\nuser=x id=2\nuser=carol x\n");

  EXPECT_EQ(run({"replace", "--dry-run", "carol", "dave", file.string()}, out, err), 0);
  EXPECT_EQ(out, "would replace: 2\n");
  EXPECT_EQ(run({"replace", "nobody", "x", file.string()}, out, err), 1);
  EXPECT_EQ(run({"replace", "--regex", "a(", "x", file.string()}, out, err), 2);
  EXPECT_EQ(err, "quorin-cli: Invalid regex: missing closing parenthesis\n");
  EXPECT_EQ(contents(file), "user=carol id=1\nuser=x id=2\nuser=carol x\n");  // untouched by the failures
}

}  // namespace
}  // namespace quorin::cli
