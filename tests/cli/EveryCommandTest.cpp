// What every subcommand shares: help, exit statuses, error texts, JSON
// output and Ctrl+C. Each command's own output is tested in its own file.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "CliTestSupport.h"
#include "support/TempDir.h"

extern char** environ;

namespace quorin::cli {
namespace {

const std::vector<std::string> kCommands = {"info",   "index",     "search", "replace", "compare",
                                            "csv",    "goto",      "follow", "recover", "logs",
                                            "filter", "bookmarks", "report"};

TEST(EveryCommandTest, HelpPrintsUsageOptionsAndExitStatusesToStdout) {
  const Outcome tool = run({"--help"});
  EXPECT_EQ(tool.status, 0);
  for (const std::string& command : kCommands) {
    EXPECT_TRUE(tool.out.contains("\n  " + command + " ")) << command;
    for (const char* help : {"--help", "-h"}) {
      const Outcome r = run({command, "--json", help});  // --help wins wherever it stands
      EXPECT_EQ(r.status, 0) << command;
      EXPECT_EQ(r.err, "") << command;
      EXPECT_TRUE(r.out.starts_with("usage: quorin-cli " + command + " ")) << r.out;
      EXPECT_TRUE(r.out.contains("\noptions:\n") && r.out.contains("\nexit status: 0 ")) << r.out;
      EXPECT_TRUE(r.out.contains(" 2 ")) << r.out;
    }
    // A mistake on the command line: the message, then the usage, on stderr.
    const Outcome wrong = run({command, "--bogus", "x"});
    EXPECT_EQ(wrong.status, 2);
    EXPECT_EQ(wrong.out, "");
    EXPECT_TRUE(
        wrong.err.starts_with("quorin-cli: unknown option '--bogus'\nusage: quorin-cli " + command + " "))
        << wrong.err;
    EXPECT_TRUE(wrong.err.ends_with("Run 'quorin-cli " + command + " --help' for its options.\n"))
        << wrong.err;
  }
  EXPECT_TRUE(run({"--version"}).out.starts_with("quorin-cli "));
}

struct Case {
  std::vector<std::string> args;
  int status;
  std::string err;  // the exact text on stderr; "*" when only the status matters
};

std::string rows(int count) {
  std::string text = "id,name,city\n";
  for (int i = 0; i < count; ++i) text += std::to_string(i) + ",ann,Oslo\n";
  return text;
}

// Files every case may use, written once per test.
struct Files {
  testing::TempDir dir;
  std::string log = dir.write("app.log", "INFO start\nERROR disk full\nINFO done\n").string();
  std::string same = dir.write("same.log", "INFO start\nERROR disk full\nINFO done\n").string();
  std::string other = dir.write("other.log", "INFO start\nINFO done\n").string();
  std::string table = dir.write("t.csv", rows(30)).string();
  std::string missing = (dir.path() / "missing.log").string();
  std::string folder = dir.path().string();
};

TEST(EveryCommandTest, ExitStatusesFollowGrepAndErrorsUseTheEditorsWords) {
  const Files f;
  const std::string noSuchFile = "open(" + f.missing + ") failed: No such file or directory";
  const std::vector<Case> cases = {
      // 0 found, equal or done; 1 not found or different.
      {{"info", f.log}, 0, ""},
      {{"index", f.log}, 0, ""},
      {{"search", "ERROR", f.log}, 0, ""},
      {{"search", "--count", "FATAL", f.log}, 1, ""},
      {{"search", "--escapes", "-i", "full\\ninfo", f.log}, 0, ""},
      {{"replace", "--dry-run", "disk", "DISK", f.log}, 0, ""},
      {{"replace", "--dry-run", "FATAL", "x", f.log}, 1, ""},
      {{"compare", f.log, f.same}, 0, ""},
      {{"compare", f.log, f.other}, 1, ""},
      {{"csv", f.table}, 0, ""},
      {{"goto", "-30s"}, 0, ""},
      {{"logs", f.log}, 0, ""},
      {{"filter", "-e", "ERROR", f.log}, 0, ""},
      {{"filter", "-e", "FATAL", f.log}, 1, ""},
      {{"recover", "--json", f.missing}, 2, "*"},
      // 2: errors, each as "quorin-cli: " and the message the editor shows.
      {{"info", f.missing}, 2, "quorin-cli: " + noSuchFile + "\n"},
      {{"index", f.folder}, 2, "quorin-cli: open(" + f.folder + ") failed: Is a directory\n"},
      {{"search", "x", f.missing}, 2, "quorin-cli: " + noSuchFile + "\n"},
      {{"search", "--regex", "a(", f.log}, 2, "quorin-cli: Invalid regex: missing closing parenthesis\n"},
      {{"replace", "x", "y", f.missing}, 2, "*"},
      {{"compare", f.log, f.missing}, 2, "*"},
      {{"csv", f.missing}, 2, "quorin-cli: " + noSuchFile + "\n"},
      {{"csv", "--delimiter", "ab", f.table}, 2, "*"},
      {{"goto", "0"}, 2, "quorin-cli: Line numbers start at 1\n"},
      {{"follow", f.missing}, 2, "*"},
      {{"logs", f.missing}, 2, "quorin-cli: " + noSuchFile + "\n"},
      {{"goto", "--file", f.missing, "1"}, 2, "quorin-cli: " + noSuchFile + "\n"},
      {{"filter", "--regex", "-e", "a(", f.log},
       2,
       "quorin-cli: Invalid regex: missing closing parenthesis\n"},
      {{"filter", "--level", "loud", f.log}, 2, "*"},
      // Usage mistakes.
      {{"search", "x"}, 2, "*"},
      {{"compare", f.log, f.same, f.other}, 2, "*"},
      {{"recover", "--restore", "--discard"}, 2, "*"},
      {{"csv", "--delimiter"}, 2, "*"},
      {{"info", "--json=yes", f.log}, 2, "*"},
  };
  for (const Case& c : cases) {
    const Outcome r = run(c.args);
    EXPECT_EQ(r.status, c.status) << ::testing::PrintToString(c.args) << r.err;
    if (c.err == "*") {
      EXPECT_TRUE(c.status == 0 || r.err.starts_with("quorin-cli: ")) << r.err;
    } else {
      EXPECT_EQ(r.err, c.err) << ::testing::PrintToString(c.args);
    }
    EXPECT_FALSE(r.err.contains("quorin-cli: quorin-cli:")) << r.err;
  }
}

TEST(EveryCommandTest, JsonIsOneObjectPerLineOnStdout) {
  const Files f;
  const std::vector<std::vector<std::string>> commands = {
      {"info", f.log},
      {"index", f.log},
      {"search", "ERROR", f.log},
      {"compare", f.log, f.other},
      {"csv", f.table},
      {"goto", "50%"},
      {"goto", "nonsense"},
      {"goto", "--file", f.log, "2"},
      {"logs", "--histogram", "4", f.log},
      {"filter", "-e", "ERROR", "-A", "1", f.log},
      {"recover", f.missing},
      {"replace", "--dry-run", "INFO", "x", f.log},
  };
  for (std::vector<std::string> args : commands) {
    args.insert(args.begin() + 1, "--json");
    const Outcome r = run(args);
    EXPECT_TRUE(r.out.starts_with("{") && r.out.ends_with("}\n") && r.out.find('\n') == r.out.size() - 1)
        << ::testing::PrintToString(args) << r.out;
  }
}

// Ctrl+C reaches the real process: SIGINT to a running command ends it
// through its cancellation, promptly, with status 130 and no error text.
TEST(EveryCommandTest, SigintCancelsCleanlyWithStatus130) {
  const Files f;
  int errPipe[2];
  ASSERT_EQ(::pipe(errPipe), 0);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, errPipe[1], STDERR_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addclose(&actions, errPipe[0]);
  std::vector<std::string> args = {QUORIN_CLI_PATH, "follow", f.log};
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  pid_t pid = 0;
  ASSERT_EQ(posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ), 0);
  posix_spawn_file_actions_destroy(&actions);
  ::close(errPipe[1]);

  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  const auto sent = std::chrono::steady_clock::now();
  ::kill(pid, SIGINT);
  int status = 0;
  ASSERT_EQ(::waitpid(pid, &status, 0), pid);
  EXPECT_LT(std::chrono::steady_clock::now() - sent, std::chrono::seconds(2));
  ASSERT_TRUE(WIFEXITED(status)) << "killed by the signal instead of cancelling";
  EXPECT_EQ(WEXITSTATUS(status), 130);
  char buffer[256];
  EXPECT_EQ(::read(errPipe[0], buffer, sizeof buffer), 0);
  ::close(errPipe[0]);
}

}  // namespace
}  // namespace quorin::cli
