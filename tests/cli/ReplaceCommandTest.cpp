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

TEST(CliReplace, RegexReplacementsAreTemplatesCheckedBeforeTheFileIsOpened) {
  testing::TempDir dir;
  const auto file = dir.write("app.log", "took 12 ms\nuser=Alice took 7 ms\n");
  Outcome r = run({"replace", "--regex", "(\\d+) ms", "$1ms", file.string()});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(testing::readFile(file), "took 12ms\nuser=Alice took 7ms\n");
  r = run({"replace", "--regex", "user=(?<name>\\w+)", "user=\\U${name}", file.string()});
  EXPECT_EQ(r.out, "replaced: 1\nstrategy: inPlacePatch\n");  // ALICE keeps the length
  EXPECT_EQ(testing::readFile(file), "took 12ms\nuser=ALICE took 7ms\n");
  // A literal query takes the replacement as typed.
  r = run({"replace", "user=ALICE", "$1", file.string()});
  EXPECT_EQ(testing::readFile(file), "took 12ms\n$1 took 7ms\n");

  r = run({"replace", "--regex", "(\\d+)(ms)", "$3", file.string()});
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err, "quorin-cli: Group 3 does not exist: the pattern has 2 groups\n");
  r = run({"replace", "--regex", "(\\d+)", "\\q", dir.path().string() + "/missing.log"});
  EXPECT_EQ(r.err, "quorin-cli: An unknown escape \\q at column 1\n");  // before the missing file
  EXPECT_EQ(testing::readFile(file), "took 12ms\n$1 took 7ms\n");
}

TEST(CliReplace, BatchRunsPairsAtOnceOrInSequence) {
  testing::TempDir dir;
  const auto file = dir.write("pets.txt", "cat dog\ndog cat cat\n");
  const auto pairs = dir.write("pairs.tsv", "find\treplace\tflags\ncat\tdog\ndog\tcat\n");
  const auto more = dir.write("more.tsv", "cow\tox\ncat\tdog\nemu\tyak\n");
  Outcome r = run({"replace", "--batch", more.string(), "--dry-run", file.string()});
  EXPECT_EQ(r.out, "would replace: 3\npair 2: 3\npairs without a match: 2\n");
  r = run({"replace", "--batch", pairs.string(), file.string()});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "replaced: 5\npair 1: 3\npair 2: 2\nstrategy: inPlacePatch\n");
  EXPECT_EQ(testing::readFile(file), "dog cat\ncat dog dog\n");
  r = run({"replace", "--batch=" + pairs.string(), "--sequential", "--json", file.string()});
  EXPECT_EQ(r.out, "{\"path\":\"" + file.string() +
                       "\",\"dryRun\":false,\"replaced\":7,\"perPair\":[2,5],\"strategy\":\"inPlacePatch\","
                       "\"rejection\":null}\n");
  EXPECT_EQ(testing::readFile(file), "cat cat\ncat cat cat\n");

  const auto bad = dir.write("bad.tsv", "cat\tdog\ncat dog\n");
  r = run({"replace", "--batch", bad.string(), file.string()});
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err,
            "quorin-cli: " + bad.string() + ": Line 2: expected find, replace and flags separated by tabs\n");
  const auto badRegex = dir.write("regex.tsv", "cat\tdog\n(x\ty\tr\n");
  r = run({"replace", "--batch", badRegex.string(), file.string()});
  EXPECT_EQ(r.err, "quorin-cli: Pair 2: Invalid regex: missing closing parenthesis\n");
  r = run({"replace", "--batch", pairs.string(), "-i", file.string()});
  EXPECT_EQ(r.err, "quorin-cli: -i does not apply to --batch: each pair has its own flags\n");
  EXPECT_EQ(testing::readFile(file), "cat cat\ncat cat cat\n");
}

}  // namespace
}  // namespace quorin::cli
