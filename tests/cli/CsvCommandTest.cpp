#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CliTestSupport.h"
#include "support/TempDir.h"
#include "text/Encoder.h"

namespace quorin::cli {
namespace {

std::string table(int rows, std::string_view row = "a,b,c") {
  std::string text = "x,y,z\n";
  for (int i = 0; i < rows; ++i) text.append(row).push_back('\n');
  return text;
}

TEST(CsvCommandTest, SummarizesTheTableStructure) {
  ::quorin::testing::TempDir dir;
  std::string text = table(30);
  text += "\"bad\"x,1,2\n1,2\n" + table(5).substr(6) + "\"q,\n\"\"r\"\"\",2,3\nlast,\"open";
  const std::string path = dir.write("orders.csv", text);
  EXPECT_EQ(run({"csv", path}), (Outcome{0,
                                         "delimiter: Comma\n"
                                         "rows: 40\n"
                                         "expectedColumns: 3\n"
                                         "malformedRows: 3\n"
                                         "longestMalformedRun: 2\n"
                                         "unterminatedQuote: yes\n"
                                         "firstMalformedRows: 32, 33, 40\n"
                                         "state: Warning\n"
                                         "message: CSV parsed with 3 problematic rows — see gutter markers\n",
                                         ""}));
  const std::string json = run({"csv", "--json", path}).out;
  EXPECT_EQ(json.substr(0, json.find(",\"indexSeconds\":")),
            "{\"path\":\"" + path + "\",\"bytes\":" + std::to_string(text.size()) +
                ",\"delimiter\":{\"name\":\"Comma\",\"character\":\",\"},\"rows\":40,\"expectedColumns\":3,"
                "\"malformedRows\":3,\"longestMalformedRun\":2,\"unterminatedQuote\":true,"
                "\"firstMalformedRows\":[32,33,40],\"state\":\"Warning\","
                "\"message\":\"CSV parsed with 3 problematic rows — see gutter markers\"");

  // A given delimiter overrides detection; a clean table has nothing to announce.
  const std::string semi = dir.write("semi.txt", "a;b\r\nc;d\r\n");
  EXPECT_EQ(run({"csv", "--delimiter", "semicolon", semi}).out,
            "delimiter: Semicolon\nrows: 2\nexpectedColumns: 2\nmalformedRows: 0\nlongestMalformedRun: 0\n"
            "unterminatedQuote: no\nfirstMalformedRows: none\nstate: Normal\n");
}

TEST(CsvCommandTest, PrintsEveryRowAsTheGridShowsIt) {
  ::quorin::testing::TempDir dir;
  const std::string path = dir.write(
      "t.csv", "id,note\r\n1,\"two\r\nlines\"\r\n2,\"say \"\"hi\"\"\"\r\n\r\n3,a\"b,\\\r\n4,\"end\"");
  EXPECT_EQ(run({"csv", "--rows", "--delimiter", ",", path}), (Outcome{0,
                                                                       "[\"id\",\"note\"]\n"
                                                                       "[\"1\",\"two\\r\\nlines\"]\n"
                                                                       "[\"2\",\"say \\\"hi\\\"\"]\n"
                                                                       "[\"\"]\n"
                                                                       "[\"3\",\"a\\\"b\",\"\\\\\"]\n"
                                                                       "[\"4\",\"end\"]\n",
                                                                       ""}));
  // CR-only files end records at CR; Tab by name or as a character.
  const std::string cr = dir.write("cr.tsv", "a\tb\rc\t\"d\re\"\r");
  const std::string rows = "[\"a\",\"b\"]\n[\"c\",\"d\\re\"]\n";
  EXPECT_EQ(run({"csv", "--rows", "--delimiter", "tab", cr}).out, rows);
  EXPECT_EQ(run({"csv", "--rows", "--delimiter=\t", cr}).out, rows);
}

TEST(CsvCommandTest, ReadsOtherEncodingsThroughAWorkingCopy) {
  ::quorin::testing::TempDir dir;
  std::string text = "name;city;n\n";
  for (int i = 0; i < 400; ++i) text += "Jürgen Möller;Köln an der Straße;" + std::to_string(i) + "\n";
  const std::string path =
      dir.write("latin.csv", text::encodeUtf8(text, text::DetectedEncoding::windows1252).value());
  const auto [status, out, err] = run({"csv", "--rows", path});
  EXPECT_EQ(err, "");
  EXPECT_EQ(out.substr(0, out.find('\n', out.find('\n') + 1) + 1),
            "[\"name\",\"city\",\"n\"]\n[\"Jürgen Möller\",\"Köln an der Straße\",\"0\"]\n");
}

TEST(CsvCommandTest, RefusesWhatIsNotATableWithAClearMessage) {
  ::quorin::testing::TempDir dir;
  const std::string prose = dir.write("prose.txt", "Just some text.\nNot a table at all.\n");
  EXPECT_EQ(run({"csv", prose}), (Outcome{2, "", "quorin-cli: Could not parse as CSV.\n"}));
  EXPECT_EQ(run({"csv", "--delimiter", "\"", prose}),
            (Outcome{2, "", "quorin-cli: Delimiter must be one ASCII character (not a quote or newline)\n"}));
  EXPECT_EQ(run({"csv"}).status, 2);
  // An empty file with a delimiter given is an empty table, not an error.
  const std::string empty = dir.write("empty.csv", "");
  EXPECT_EQ(run({"csv", "--rows", "--delimiter", ",", empty}), (Outcome{0, "", ""}));
  EXPECT_NE(run({"csv", "--delimiter", ",", empty}).out.find("rows: 0\n"), std::string::npos);
}

}  // namespace
}  // namespace quorin::cli
