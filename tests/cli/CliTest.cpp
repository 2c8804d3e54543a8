#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "Cli.h"
#include "support/TempDir.h"

namespace quorin::cli {
namespace {

struct Outcome {
  int status;
  std::string out;
  std::string err;
};

Outcome run(std::vector<std::string> args) {
  std::ostringstream out, err;
  const int status = runCli(args, out, err);
  return {status, out.str(), err.str()};
}

class CliInfoTest : public ::testing::Test {
 protected:
  testing::TempDir dir_;
};

TEST_F(CliInfoTest, EmptyFileIsAnEmptyUtf8LfDocument) {
  const auto result = run({"info", dir_.write("empty.txt", "")});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "length: 0\ndocumentLength: 0\ncontentStart: 0\nencoding: utf8\nlineEnding: lf\n");
  EXPECT_EQ(result.err, "");
}

TEST_F(CliInfoTest, ByteOrderMarkIsExcludedFromTheDocument) {
  // In UTF-16 the line break is read in code units: 0D 00 0A 00 is CR LF.
  const auto utf16 = run({"info", dir_.write("u16.txt", testing::utf16LEWithMark(u"a\r\nb"))});
  EXPECT_EQ(utf16.status, 0);
  EXPECT_EQ(utf16.out, "length: 10\ndocumentLength: 8\ncontentStart: 2\nencoding: utf16LE\nlineEnding: crlf\n");

  const auto utf8 = run({"info", dir_.write("u8.txt", "\xEF\xBB\xBFone\r\ntwo\r\n")});
  EXPECT_EQ(utf8.status, 0);
  EXPECT_EQ(utf8.out,
            "length: 13\ndocumentLength: 10\ncontentStart: 3\nencoding: utf8WithBOM\nlineEnding: crlf\n");
}

TEST_F(CliInfoTest, JsonUsesTheCodeNames) {
  const std::string path = dir_.write("u16.txt", testing::utf16LEWithMark(u"a\n"));
  const auto result = run({"info", "--json", path});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "{\"path\":\"" + path +
                            "\",\"length\":6,\"documentLength\":4,\"contentStart\":2,"
                            "\"encoding\":\"utf16LE\",\"lineEnding\":\"lf\"}\n");
}

TEST_F(CliInfoTest, UnreadableFileReportsTheOpenError) {
  const std::string missing = (dir_.path() / "missing.log").string();
  const auto result = run({"info", missing, "--json"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "quorin-cli: open(" + missing + ") failed: No such file or directory\n");
}

TEST(CliUsageTest, MistakesPrintUsageToStderr) {
  testing::TempDir dir;
  const std::string file = dir.write("f.txt", "x");
  const std::vector<std::vector<std::string>> mistakes = {
      {}, {"frobnicate"}, {"info"}, {"info", file, "--bogus"}, {"info", file, file}, {"--json"},
  };
  for (const auto& args : mistakes) {
    SCOPED_TRACE(::testing::PrintToString(args));
    const auto result = run(args);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(result.err.starts_with("quorin-cli: ")) << result.err;
    EXPECT_NE(result.err.find("usage: quorin-cli"), std::string::npos) << result.err;
  }
}

TEST(CliUsageTest, HelpGoesToStdout) {
  for (const auto& args :
       std::vector<std::vector<std::string>>{{"--help"}, {"info", "--help"}, {"info", "-h"}}) {
    const auto result = run(args);
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.out.find("info FILE [--json]"), std::string::npos) << result.out;
    EXPECT_EQ(result.err, "");
  }
  // After "--" an argument is a file name, even one that looks like an option.
  EXPECT_EQ(run({"info", "--", "--help"}).err,
            "quorin-cli: open(--help) failed: No such file or directory\n");
}

}  // namespace
}  // namespace quorin::cli
