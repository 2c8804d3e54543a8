#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "Cli.h"

namespace quorin::cli {
namespace {

std::pair<int, std::string> run(std::vector<std::string> args) {
  std::ostringstream out, err;
  const int status = runCli(args, out, err);
  return {status, out.str() + err.str()};
}

// The parsing itself is the core's; this checks how each kind is printed.
TEST(GotoCommandTest, PrintsTheTargetOrTheFieldsMessage) {
  using Result = std::pair<int, std::string>;
  EXPECT_EQ(run({"goto", "42"}), Result(0, "line 42\n"));
  EXPECT_EQ(run({"goto", "12.5%"}), Result(0, "percent 12.5\n"));
  EXPECT_EQ(run({"goto", "B1234"}), Result(0, "byte 1234\n"));
  EXPECT_EQ(run({"goto", "r7"}), Result(0, "record 7\n"));
  EXPECT_EQ(run({"goto", "-30s"}), Result(0, "timeOffset -30 seconds\n"));
  EXPECT_EQ(run({"goto", "2026-09-04", "12:34"}), Result(0, "time 2026-09-04 12:34\n"));
  EXPECT_EQ(run({"goto", "7:05:09"}), Result(0, "time 07:05:09\n"));
  EXPECT_EQ(run({"goto", " "}), Result(2, "quorin-cli: nothing to go to\n"));
  EXPECT_EQ(run({"goto", "--", "--json"}).first, 2);  // after "--" even --json is text

  EXPECT_EQ(run({"goto", "--json", "2026-09-04"}),
            Result(0,
                   "{\"kind\":\"time\",\"year\":2026,\"month\":9,\"day\":4,\"hour\":null,\"minute\":null,"
                   "\"second\":null}\n"));
  EXPECT_EQ(run({"goto", "--json", "+1.5h"}), Result(0, "{\"kind\":\"timeOffset\",\"seconds\":5400}\n"));
  EXPECT_EQ(
      run({"goto", "--json", "+5w"}),
      Result(2,
             "{\"kind\":\"failure\",\"failure\":\"offsetInvalid\",\"message\":\"Offset unit must be s, m, "
             "h or d: +5m, -30s, +2h, +1d\"}\n"));
}

}  // namespace
}  // namespace quorin::cli
