#include <gtest/gtest.h>

#include "CliTestSupport.h"
#include "support/TempDir.h"

namespace quorin::cli {
namespace {

// A preamble, a stack trace under an error, and times written at +02:00.
constexpr std::string_view kLog =
    "starting\n"
    "2026-03-20T10:00:00+02:00 INFO up\n"
    "2026-03-20T10:00:30+02:00 ERROR boom\n"
    "    at A.b(A.java:1)\n"
    "    at A.c(A.java:2)\n"
    "2026-03-20T10:01:10+02:00 WARN slow\n"
    "2026-03-20T10:02:00+02:00 INFO done";

TEST(LogsCommandTest, SummarisesFormatTimesLevelsAndMessages) {
  const testing::TempDir dir;
  const std::string path = dir.write("app.log", kLog).string();
  EXPECT_EQ(run({"logs", path}), (Outcome{0,
                                          "format: iso8601\n"
                                          "timestamped: 4 of 7 lines (57.1%)\n"
                                          "first: 2026-03-20 10:00:00\n"
                                          "last: 2026-03-20 10:02:00\n"
                                          "messages: 5 (error 1, warning 1, info 2, none 1)\n"
                                          "continuation lines: 2 in 1 messages\n",
                                          ""}));

  // Buckets in a round width, their starts shown as the lines show times.
  const Outcome json = run({"logs", "--json", "--histogram", "3", path});
  EXPECT_EQ(json.status, 0);
  EXPECT_TRUE(json.out.starts_with("{\"path\":\"" + path +
                                   "\",\"format\":\"iso8601\",\"lines\":7,\"timestampedLines\":4,"))
      << json.out;
  EXPECT_TRUE(
      json.out.contains("\"levels\":{\"error\":1,\"warning\":1,\"info\":2,\"none\":1},"
                        "\"continuationLines\":2,\"multilineMessages\":1,"
                        "\"histogram\":{\"bucketSeconds\":60,\"buckets\":[{\"start\":\"2026-03-20 "
                        "10:00:00\""))
      << json.out;
  EXPECT_TRUE(json.out.contains("{\"start\":\"2026-03-20 10:02:00\"")) << json.out;

  const std::string text = dir.write("notes.txt", "just\nsome words\n").string();
  const Outcome plain = run({"logs", text});
  EXPECT_TRUE(plain.out.starts_with("format: none\ntimestamped: 0 of 3 lines (0.0%)\nfirst: none\n"))
      << plain.out;
  EXPECT_TRUE(plain.out.contains("continuation lines: 0 in 0 messages\n")) << plain.out;

  for (const char* bad : {"0", "x", "10001"}) {
    const Outcome r = run({"logs", "--histogram", bad, path});
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(r.err.starts_with("quorin-cli: --histogram needs a number of buckets from 1 to 10000\n"))
        << r.err;
  }
}

TEST(LogsCommandTest, GotoResolvesEveryKindOfTargetInAFile) {
  const testing::TempDir dir;
  const std::string path = dir.write("app.log", kLog).string();
  const auto line = [&](std::vector<std::string> args) {
    args.insert(args.begin(), {"goto", "--file", path});
    return run(args);
  };
  EXPECT_EQ(line({"2026-03-20", "10:01"}), (Outcome{0, "6\n", ""}));  // the log's own offset
  EXPECT_EQ(line({"--at", "4", "+30s"}), (Outcome{0, "6\n", ""}));    // from the trace's message
  EXPECT_EQ(line({"--at", "2", "10:00:30"}), (Outcome{0, "3\n", ""}));
  EXPECT_EQ(line({"3"}), (Outcome{0, "3\n", ""}));
  EXPECT_EQ(line({"b40"}), (Outcome{0, "2\n", ""}));
  EXPECT_EQ(line({"100%"}), (Outcome{0, "7\n", ""}));
  EXPECT_EQ(line({"99"}),
            (Outcome{0, "7\n", "quorin-cli: Line 99 is past the end (7 lines) — went to the last line\n"}));
  EXPECT_EQ(
      line({"--json", "2026-03-21"}),
      (Outcome{0,
               "{\"kind\":\"time\",\"year\":2026,\"month\":3,\"day\":21,\"hour\":null,\"minute\":null,"
               "\"second\":null,\"line\":7,\"notice\":\"Past the last timestamp (2026-03-20 10:02:00) — "
               "went to the last line\"}\n",
               ""}));
  // The caret above the first timestamp has no time to count from.
  const Outcome above = line({"--json", "10:00"});
  EXPECT_EQ(above.status, 2);
  EXPECT_TRUE(above.out.starts_with("{\"kind\":\"failure\",\"failure\":\"caretWithoutTime\",")) << above.out;

  const std::string notes = dir.write("notes.txt", "just\nsome words\n").string();
  EXPECT_EQ(run({"goto", "--file", notes, "12:00"}),
            (Outcome{2, "",
                     "quorin-cli: No timestamps recognized in this document — Go to Time needs a log with a "
                     "timestamp at the start of its lines\n"}));
  // Records count from the row under the header; one spans two lines.
  std::string rows = "id,name,city\n1,\"two\nlines\",Oslo\n";
  for (int i = 2; i < 30; ++i) rows += std::to_string(i) + ",bob,Oslo\n";
  const std::string table = dir.write("t.csv", rows).string();
  EXPECT_EQ(run({"goto", "--file", table, "r2"}), (Outcome{0, "4\n", ""}));
  EXPECT_EQ(run({"goto", "--at", "3", "+5m"}).status, 2);  // --at needs --file
}

}  // namespace
}  // namespace quorin::cli
