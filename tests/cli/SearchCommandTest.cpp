#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CliTestSupport.h"
#include "support/TempDir.h"

namespace quorin::cli {
namespace {

TEST(CliSearchTest, PrintsLineOffsetAndTextPerMatch) {
  testing::TempDir dir;
  const std::string path = dir.write("log.txt", "INFO start\nERROR disk full\r\nWARN x\nerror again\n");
  const Outcome plain = run({"search", "ERROR", path});
  EXPECT_EQ(plain.status, 0);
  EXPECT_EQ(plain.out, "2:11:ERROR disk full\n");

  EXPECT_EQ(run({"search", "-i", "error", path}).out, "2:11:ERROR disk full\n4:35:error again\n");
  EXPECT_EQ(run({"search", "--count", "-i", "error", path}).out, "2\n");
  EXPECT_TRUE(run({"search", "--count", "--json", "-i", "error", path})
                  .out.starts_with("{\"path\":\"" + path +
                                   "\",\"totalMatchCount\":2,\"truncated\":false,"
                                   "\"timedOut\":false,\"elapsedSeconds\":"));
  EXPECT_EQ(run({"search", "--regex", "^(INFO|WARN) \\w+$", path}).out, "1:0:INFO start\n3:28:WARN x\n");
  // Escapes find a match across the CR LF; "-w" keeps whole words only.
  EXPECT_EQ(run({"search", "--escapes", "full\\r\\nWARN", path}).out, "2:22:ERROR disk full\n");
  EXPECT_EQ(run({"search", "-w", "-i", "disk", path}).status, 0);
  EXPECT_EQ(run({"search", "-w", "dis", path}).status, 1);
  // A line with many matches is printed once, at its first match; all are counted.
  EXPECT_EQ(run({"search", "r", path}).out, "1:8:INFO start\n4:36:error again\n");
  EXPECT_EQ(run({"search", "--count", "r", path}).out, "4\n");

  const Outcome json = run({"search", "--json", "x$", path, "--regex"});
  EXPECT_TRUE(json.out.starts_with("{\"path\":\"" + path + "\",\"totalMatchCount\":1,\"truncated\":false,"))
      << json.out;
  EXPECT_NE(json.out.find("\"matches\":[{\"line\":3,\"offset\":33,\"length\":1,\"text\":\"WARN x\"}]}"),
            std::string::npos)
      << json.out;
  // Nothing found: status 1 and a count of 0; an empty query finds nothing.
  EXPECT_EQ(run({"search", "--count", "gamma", path}), (Outcome{1, "0\n", ""}));
  EXPECT_EQ(run({"search", "", path}).status, 1);
}

}  // namespace
}  // namespace quorin::cli
