#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "CliTestSupport.h"
#include "Json.h"
#include "core/text/SampleTexts.h"
#include "support/TempDir.h"
#include "text/Encoder.h"

namespace quorin::cli {
namespace {

std::string info(int length, int documentLength, int contentStart, std::string encoding, std::string ending) {
  return "length: " + std::to_string(length) + "\ndocumentLength: " + std::to_string(documentLength) +
         "\ncontentStart: " + std::to_string(contentStart) + "\nencoding: " + encoding +
         "\nlineEnding: " + ending + "\n";
}

TEST(CliInfoTest, ReportsLengthsEncodingAndLineEnding) {
  testing::TempDir dir;
  EXPECT_EQ(run({"info", dir.write("empty.txt", "")}), (Outcome{0, info(0, 0, 0, "utf8", "lf"), ""}));
  // The byte order mark is not part of the document; in UTF-16, 0D 00 0A 00 is CR LF.
  EXPECT_EQ(run({"info", dir.write("u16.txt", testing::utf16LEWithMark(u"a\r\nb"))}),
            (Outcome{0, info(10, 8, 2, "utf16LE", "crlf"), ""}));
  EXPECT_EQ(run({"info", dir.write("u8.txt", "\xEF\xBB\xBFone\r\ntwo\r\n")}),
            (Outcome{0, info(13, 10, 3, "utf8WithBOM", "crlf"), ""}));
  EXPECT_EQ(run({"info", dir.write("crlf.txt", "one\r\ntwo\r\n")}),
            (Outcome{0, info(10, 10, 0, "utf8", "crlf"), ""}));

  const std::string path = dir.write("lf16.txt", testing::utf16LEWithMark(u"a\n"));
  EXPECT_EQ(run({"info", "--json", path}).out, "{\"path\":\"" + path +
                                                   "\",\"length\":6,\"documentLength\":4,\"contentStart\":2,"
                                                   "\"encoding\":\"utf16LE\",\"lineEnding\":\"lf\"}\n");

  const std::string missing = (dir.path() / "missing.log").string();
  EXPECT_EQ(run({"info", missing, "--json"}),
            (Outcome{2, "", "quorin-cli: open(" + missing + ") failed: No such file or directory\n"}));
}

TEST(CliInfoTest, DetectsTheEncodingOfFilesWithoutMark) {
  testing::TempDir dir;
  auto write = [&](const char* name, std::string_view utf8, text::DetectedEncoding encoding) {
    return dir.write(name, text::encodeUtf8(text::samples::repeated(utf8, 3000), encoding).value());
  };
  auto encodingOf = [](const std::filesystem::path& path) {
    const std::string out = run({"info", path}).out;
    const size_t at = out.find("encoding: ");
    return at == std::string::npos ? out : out.substr(at + 10, out.find('\n', at) - at - 10);
  };
  // Detection itself is the core's to test; this shows its answer reaches the command.
  using enum text::DetectedEncoding;
  EXPECT_EQ(encodingOf(write("sjis.txt", text::samples::kJapanese, shiftJIS)), "shiftJIS");
  EXPECT_EQ(encodingOf(write("utf8.txt", text::samples::kJapanese, utf8)), "utf8");

  // UTF-16 without a mark keeps all its bytes: nothing is skipped.
  const std::string path = dir.write("u16.txt", text::encodeUtf8("a\r\nb\r\n", utf16LE).value());
  EXPECT_EQ(run({"info", "--json", path}).out,
            "{\"path\":\"" + path +
                "\",\"length\":12,\"documentLength\":12,\"contentStart\":0,"
                "\"encoding\":\"utf16LE\",\"lineEnding\":\"crlf\"}\n");
}

TEST(CliIndexTest, PrintsLineCountTierAndTimings) {
  testing::TempDir dir;
  const std::string path = dir.write("log.txt", "one\ntwo\r\nthree\n");
  const Outcome text = run({"index", path});
  EXPECT_EQ(text.status, 0);
  EXPECT_TRUE(text.out.starts_with("lineCount: 4\ntier: 1 (in-memory)\nfirstPass: ")) << text.out;
  EXPECT_NE(text.out.find(" ms\nbuild: "), std::string::npos);

  const Outcome json = run({"index", "--json", path});
  EXPECT_TRUE(json.out.starts_with("{\"path\":\"" + path +
                                   "\",\"bytes\":15,\"lineCount\":4,\"tier\":\"1 (in-memory)\","
                                   "\"firstPassSeconds\":"))
      << json.out;
}

// Each command's own mistakes and --help are checked for every command at once.
TEST(CliUsageTest, MistakesBeforeACommandPrintUsageToStderr) {
  for (const auto& args : std::vector<std::vector<std::string>>{{}, {"frobnicate"}, {"info"}, {"--json"}}) {
    const auto result = run(args);
    EXPECT_EQ(result.status, 2) << ::testing::PrintToString(args);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(result.err.starts_with("quorin-cli: ") && result.err.contains("usage: quorin-cli"))
        << result.err;
  }
  // After "--" an argument is a file name, even one that looks like an option.
  EXPECT_EQ(run({"info", "--", "--help"}).err,
            "quorin-cli: open(--help) failed: No such file or directory\n");
}

std::string asJsonString(std::string_view text) {
  std::string out;
  appendJsonString(out, text);
  return out;
}

TEST(CliJsonStringTest, EscapesWhatJsonRequiresAndReplacesMalformedUtf8) {
  EXPECT_EQ(asJsonString(R"(say "hi" \ bye)"), R"("say \"hi\" \\ bye")");
  EXPECT_EQ(asJsonString("a\tb\nc\r\b\f"), R"("a\tb\nc\r\b\f")");
  EXPECT_EQ(asJsonString(std::string("\x01\x1f\0", 3)), R"("\u0001\u001f\u0000")");
  EXPECT_EQ(asJsonString("/ é ✓ \x7f"), "\"/ é ✓ \x7f\"");  // kept as UTF-8; '/' and DEL need no escape
  // Malformed UTF-8, including a truncated sequence, becomes replacement characters.
  EXPECT_EQ(asJsonString("a\xFF!"), "\"a\xEF\xBF\xBD!\"");
  EXPECT_EQ(asJsonString("\xC3"), "\"\xEF\xBF\xBD\"");
}

TEST(CliJsonWriterTest, NestedValuesGetCommasOnlyBetweenSiblings) {
  std::ostringstream out;
  JsonWriter json(out);
  json.beginObject()
      .field("n\"", int64_t{-42})
      .field("u", uint64_t{18446744073709551615u})
      .key("list")
      .beginArray()
      .value(1)
      .beginObject()
      .field("ok", true)
      .endObject()
      .beginArray()
      .endArray()
      .value("x")
      .value(0.5)
      .null()
      .value(std::numeric_limits<double>::infinity())
      .endArray()
      .endObject();
  EXPECT_TRUE(json.complete());
  EXPECT_EQ(out.str(), R"({"n\"":-42,"u":18446744073709551615,"list":[1,{"ok":true},[],"x",0.5,null,null]})");
}

}  // namespace
}  // namespace quorin::cli
