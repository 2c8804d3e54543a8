#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CliTestSupport.h"
#include "support/TempDir.h"

namespace quorin::cli {
namespace {

Outcome compare(std::vector<std::string> args) {
  args.insert(args.begin(), "compare");
  return run(std::move(args));
}

using testing::readFile;

TEST(CompareCommandTest, PrintsChangesNoticesAndSummaryWithDiffStatuses) {
  testing::TempDir dir;
  const auto left = dir.write("left.txt", "one\ntwo\nthree\nfour\n").string();
  const auto right = dir.write("right.txt", "one\r\nTWO\r\nthree\r\nfour\r\nfive\r\n").string();

  const Outcome differ = compare({left, right});
  EXPECT_EQ(differ.status, 1) << differ.err;
  EXPECT_EQ(differ.out,
            "2c2\n< two\n---\n> TWO\n"
            "4a5\n> five\n"
            "notice: line endings differ (left LF, right CRLF) and are not compared\n"
            "2 changes: 1 line removed, 2 lines added\n");

  const Outcome caseless = compare({"--ignore-case", left, right});
  EXPECT_EQ(caseless.status, 1);
  EXPECT_EQ(caseless.out.substr(0, 14), "4a5\n> five\nnot");

  const Outcome same =
      compare({"--ignore-whitespace", left, dir.write("same.txt", "one \n two\nthree\t\nfour\n").string()});
  EXPECT_EQ(same.status, 0);
  EXPECT_EQ(same.out, "No differences\n");
}

TEST(CompareCommandTest, JsonUsesTheResultsFieldNames) {
  testing::TempDir dir;
  const auto left = dir.write("a.txt", "a\nb\nc\n").string();
  const auto right = dir.write("b.txt", "a\nc\n").string();
  const Outcome json = compare({"--json", left, right});
  EXPECT_EQ(json.status, 1);
  EXPECT_NE(json.out.find("\"changes\":[{\"leftStart\":1,\"leftCount\":1,\"rightStart\":1,\"rightCount\":0}],"
                          "\"capped\":false,\"notices\":[]"),
            std::string::npos)
      << json.out;
  EXPECT_NE(json.out.find("\"ignoreWhitespace\":false"), std::string::npos);
}

TEST(CompareCommandTest, SavesTheReportAndFailsClearly) {
  testing::TempDir dir;
  const auto left = dir.write("a.txt", "x\n").string();
  const auto right = dir.write("b.txt", "y\n").string();

  // A directory receives the report under its default name.
  EXPECT_EQ(compare({"--report", dir.path().string(), left, right}).status, 1);
  const std::string report = readFile(dir.path() / "compare-report.txt");
  EXPECT_EQ(report.substr(0, report.find('\n')), "Quorin compare report");
  EXPECT_NE(report.find("\nOptions: ignore whitespace off, ignore case off\n"), std::string::npos);
  EXPECT_NE(report.find("1c1\n< x\n---\n> y\n"), std::string::npos);

  const Outcome unsaved = compare({"--report", (dir.path() / "missing" / "r.txt").string(), left, right});
  EXPECT_EQ(unsaved.status, 2);
  EXPECT_EQ(unsaved.err.rfind("quorin-cli: Couldn't save the report: open(", 0), 0u) << unsaved.err;

  const Outcome missing = compare({left, (dir.path() / "nope.txt").string()});
  EXPECT_EQ(missing.status, 2);
  EXPECT_EQ(missing.out, "");
  EXPECT_NE(missing.err.find("Couldn't compare: The file “" + (dir.path() / "nope.txt").string() +
                             "” couldn't be read for comparison.\n"),
            std::string::npos)
      << missing.err;

  EXPECT_EQ(compare({left}).status, 2);
}

}  // namespace
}  // namespace quorin::cli
