#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "CliTestSupport.h"
#include "core/hostile/HostileCorpus.h"
#include "support/TempDir.h"

namespace quorin::cli {
namespace {

std::optional<std::string> fileBytes(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Every reading command on every hostile file ends with an answer or a
// message on stderr (status 2), and none of them writes to the file.
TEST(CliHostileFilesTest, ReadingCommandsAnswerOrExplainAndLeaveTheFileAlone) {
  testing::TempDir dir;
  for (const testing::HostileFile& file : testing::makeHostileCorpus(dir)) {
    const std::string path = file.path.string();
    const auto before = file.regular ? fileBytes(file.path) : std::nullopt;
    const std::vector<std::vector<std::string>> commands = {
        {"info", "--json", path},
        {"index", path},
        {"search", "--regex", "[0-9]x+$", "--count", path},
        {"search", "-i", "--escapes", "\\u00e9\\n", path},
        {"csv", "--json", "--rows", path},
        {"compare", path, path},
        {"replace", "--dry-run", "x", "y", path}};
    for (const auto& command : commands) {
      SCOPED_TRACE(file.name + ": " + command.front());
      const Outcome outcome = run(command);
      EXPECT_GE(outcome.status, 0);
      EXPECT_LE(outcome.status, 2);
      if (outcome.status == 2) {
        EXPECT_FALSE(outcome.err.empty());
      }
    }
    if (before) {
      EXPECT_EQ(fileBytes(file.path), before) << file.name;
    }
  }
}

// A replacement saves the edited text, or says why not and leaves the file.
TEST(CliHostileFilesTest, ReplacingEitherSavesTheEditOrLeavesTheFileAsItWas) {
  testing::TempDir dir;
  for (const testing::HostileFile& file : testing::makeHostileCorpus(dir)) {
    SCOPED_TRACE(file.name);
    const auto before = file.regular ? fileBytes(file.path) : std::nullopt;
    const Outcome outcome = run({"replace", "e", "E", file.path.string()});
    if (outcome.status == 2) {
      EXPECT_FALSE(outcome.err.empty());
      if (before) {
        EXPECT_EQ(fileBytes(file.path), before);
      }
    } else if (outcome.status == 0 && before) {
      const auto after = fileBytes(file.path);
      ASSERT_TRUE(after.has_value());
      EXPECT_EQ(after->size(), before->size());  // "e" and "E" are one byte each in every encoding here
    }
  }
}

}  // namespace
}  // namespace quorin::cli
