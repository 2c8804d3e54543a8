#include <gtest/gtest.h>

#include "CliTestSupport.h"
#include "support/TempDir.h"

namespace quorin::cli {
namespace {

using testing::readFile;

TEST(CliReplace, SameLengthPatchesInPlaceOtherwiseRewrites) {
  testing::TempDir dir;
  const auto file = dir.write("app.log", "user=alice id=1\nuser=bob id=2\nuser=alice id=3\n");
  Outcome r = run({"replace", "alice", "carol", file.string()});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "replaced: 2\nstrategy: inPlacePatch\n");
  r = run({"replace", "--regex", "-i", "BOB|id=3", "x", file.string()});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out,
            "replaced: 2\nstrategy: atomicRewrite\n"
            "in-place patch rejected: edit #0 is not length-preserving (original 3B, inserted 1B)\n");
  EXPECT_EQ(readFile(file), "user=carol id=1\nuser=x id=2\nuser=carol x\n");

  r = run({"replace", "--dry-run", "carol", "dave", file.string()});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "would replace: 2\n");
  r = run({"replace", "nobody", "x", file.string()});
  EXPECT_EQ(r.status, 1);
  r = run({"replace", "--regex", "a(", "x", file.string()});
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err, "quorin-cli: Invalid regex: missing closing parenthesis\n");
  EXPECT_EQ(readFile(file), "user=carol id=1\nuser=x id=2\nuser=carol x\n");  // untouched by the failures
}

}  // namespace
}  // namespace quorin::cli
