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
    "2026-03-20T10:01:10+02:00 WARN slow disk\n"
    "2026-03-20T10:02:00+02:00 INFO done\n";

TEST(FilterCommandTest, PrintsShownLinesWithTheirNumbersLikeGrep) {
  const testing::TempDir dir;
  const std::string path = dir.write("app.log", kLog).string();
  // Context joins adjacent groups and separates the others with "--".
  EXPECT_EQ(run({"filter", "-e", "up", "-e", "done", "-A", "1", path}),
            (Outcome{0,
                     "2:2026-03-20T10:00:00+02:00 INFO up\n"
                     "3:2026-03-20T10:00:30+02:00 ERROR boom\n"
                     "--\n"
                     "7:2026-03-20T10:02:00+02:00 INFO done\n",
                     ""}));
  // A level covers the message's continuation lines; an exclusion still applies.
  EXPECT_EQ(run({"filter", "--level", "warning", "-v", "A.c", path}),
            (Outcome{0,
                     "3:2026-03-20T10:00:30+02:00 ERROR boom\n"
                     "4:    at A.b(A.java:1)\n"
                     "6:2026-03-20T10:01:10+02:00 WARN slow disk\n",
                     ""}));
  // A word found in a stack trace brings its whole message; times are the log's own clock.
  EXPECT_EQ(run({"filter", "--messages", "-e", "A.c", "--count", path}), (Outcome{0, "3\n", ""}));
  EXPECT_EQ(run({"filter", "--from", "2026-03-20 10:01", "--to", "2026-03-20 10:01", path}),
            (Outcome{0, "6:2026-03-20T10:01:10+02:00 WARN slow disk\n", ""}));
  EXPECT_EQ(
      run({"filter", "-i", "-w", "-e", "DISK", "--json", path}).out,
      "{\"path\":\"" + path +
          "\",\"shown\":1,\"total\":7,\"lines\":[{\"line\":6,\"text\":\"2026-03-20T10:01:10+02:00 WARN slow "
          "disk\"}]}\n");
}

TEST(FilterCommandTest, RefusesWindowsItCannotUse) {
  const testing::TempDir dir;
  const std::string log = dir.write("app.log", kLog).string();
  const std::string plain = dir.write("notes.txt", "no times here\n").string();
  EXPECT_EQ(run({"filter", "--from", "2026-03-20 11:00", "--to", "2026-03-20 10:00", log}),
            (Outcome{2, "", "quorin-cli: The time window ends before it begins: To is before From\n"}));
  EXPECT_EQ(run({"filter", "--from", "+5m", log}).err,
            "quorin-cli: From: offsets like +5m are not window edges; give a time\n");
  EXPECT_EQ(
      run({"filter", "--from", "2026-03-20", plain}).err,
      "quorin-cli: No timestamps recognized in this document — Go to Time needs a log with a timestamp at "
      "the start of its lines\n");
  EXPECT_EQ(run({"filter", "-B", "-1", log}).status, 2);
}

}  // namespace
}  // namespace quorin::cli
