#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "csv/CSVParseState.h"
#include "csv/CsvTestSupport.h"
#include "csv/DelimiterDetection.h"
#include "csv/FieldSplit.h"

namespace quorin::csv {
namespace {

using testing::bytesOf;

std::string rows(int count, std::string_view row) {
  std::string out;
  for (int i = 0; i < count; ++i) out.append(row).push_back('\n');
  return out;
}

std::optional<std::string> detectedName(std::string_view sample, uint8_t terminator = '\n') {
  const auto delimiter = detectDelimiter(bytesOf(sample), terminator);
  if (!delimiter) return std::nullopt;
  return delimiter->name;
}

TEST(CsvDetectionTest, NeedsTenSteadyRecordsAndEnoughColumns) {
  EXPECT_EQ(detectedName(rows(9, "a,b,c")), std::nullopt);
  EXPECT_EQ(detectedName(rows(10, "a,b,c")), "Comma");
  // Two columns are enough for Tab, not for the others.
  EXPECT_EQ(detectedName(rows(19, "a\tb") + "ab\n"), "Tab");
  EXPECT_EQ(detectedName(rows(20, "a,b")), std::nullopt);
  // Shares: Tab needs 90 %, the others 95 %.
  EXPECT_EQ(detectedName(rows(17, "a\tb") + rows(3, "ab")), std::nullopt);
  EXPECT_EQ(detectedName(rows(18, "a,b,c") + rows(2, "ab")), std::nullopt);
  // Quoted delimiters and line breaks do not break the count.
  EXPECT_EQ(detectedName(rows(12, "\"x,\n;y\",b,c")), "Comma");
  // CR-only files: records end at CR.
  std::string crOnly = rows(12, "a;b;c;d");
  std::ranges::replace(crOnly, '\n', '\r');
  EXPECT_EQ(detectedName(crOnly, '\r'), "Semicolon");
  EXPECT_EQ(detectedName(crOnly, '\n'), std::nullopt);
}

TEST(CsvDetectionTest, ScoresShareThenColumnsAndKeepsCandidateOrderOnTies) {
  // Both give a share of 1; semicolon has more columns.
  EXPECT_EQ(detectedName(rows(12, "a,b,c;d;e;f")), "Semicolon");
  // Exact ties keep the earlier candidate.
  EXPECT_EQ(detectedName(rows(12, "a,b;c,d;e")), "Comma");
  EXPECT_EQ(detectedName(rows(12, "a|b\tc|d\te")), "Tab");
  // Columns count up to 50: 80 pipes tie with 50 commas, and Comma comes first.
  const std::string wide = std::string(79, '|') + std::string(49, ',');
  EXPECT_EQ(detectedName(rows(12, wide)), "Comma");
  const std::string wider = std::string(79, '|') + std::string(48, ',');
  EXPECT_EQ(detectedName(rows(12, wider)), "Pipe");

  const SampleScore score = scoreSample(bytesOf(rows(300, "a,b") + rows(100, "a,b,c")), ',', '\n');
  EXPECT_EQ(score, (SampleScore{200, 2, 1.0, false}));  // stops at 200 records
  EXPECT_TRUE(scoreSample(bytesOf("a,b\n"), ',', '\n').failed);
}

TEST(CsvDetectionTest, NulInTheFirst8KiBMeansBinary) {
  std::string sample = rows(2000, "a,b,c");
  sample[100] = '\0';
  EXPECT_EQ(detectedName(sample), std::nullopt);
  sample[100] = 'a';
  sample[9000] = '\0';
  EXPECT_EQ(detectedName(sample), "Comma");
}

TEST(CsvDelimiterTest, CustomDelimiterIsOneAsciiByteThatIsNotAQuoteOrLineBreak) {
  EXPECT_EQ(customDelimiter(":"), (CSVDelimiter{':', "Custom Delimiter"}));
  EXPECT_EQ(customDelimiter("\t"), CSVDelimiter::tab());
  for (const char* bad : {"", "ab", "\"", "\n", "\r", "\xC3\xA9"})
    EXPECT_EQ(customDelimiter(bad).error(), "Delimiter must be one ASCII character (not a quote or newline)")
        << bad;
}

std::vector<std::string> values(std::string_view record, uint8_t delimiter = ',') {
  std::vector<std::string> out;
  for (const CSVField& field : splitFields(bytesOf(record), delimiter))
    out.push_back(fieldValue(
        bytesOf(record.substr(static_cast<size_t>(field.offset), static_cast<size_t>(field.length))),
        field.quoted));
  return out;
}

TEST(CsvFieldTest, SplitsRecordsIntoFieldsAndValues) {
  EXPECT_EQ(splitFields(bytesOf("a,\"b\"\"c\",d"), ','),
            (std::vector<CSVField>{{0, 1, false}, {2, 6, true}, {9, 1, false}}));
  EXPECT_EQ(values("a,\"b\"\"c\",d"), (std::vector<std::string>{"a", "b\"c", "d"}));
  // Data after a closing quote: only the leading quote goes.
  EXPECT_EQ(values("\"abc\"x,d"), (std::vector<std::string>{"abc\"x", "d"}));
  // One LF, then one CR, belongs to the line end.
  EXPECT_EQ(splitFields(bytesOf("a,b\r\n"), ','), (std::vector<CSVField>{{0, 1, false}, {2, 1, false}}));
  EXPECT_EQ(values("a,b\r\r\n"), (std::vector<std::string>{"a", "b\r"}));
  EXPECT_EQ(splitFields(bytesOf("\r\n"), ','), (std::vector<CSVField>{{0, 0, false}}));
  EXPECT_EQ(values(",,"), (std::vector<std::string>{"", "", ""}));
  // Delimiters and line breaks inside quotes; quotes inside unquoted fields are data.
  EXPECT_EQ(values("\"x;\ny\";a\"b\"", ';'), (std::vector<std::string>{"x;\ny", "a\"b\""}));
  // An unclosed quote runs to the end of the record.
  EXPECT_EQ(values("a,\"b,c"), (std::vector<std::string>{"a", "b,c"}));
  EXPECT_EQ(values("\""), (std::vector<std::string>{""}));
  // Invalid UTF-8 is replaced, not refused.
  EXPECT_EQ(values("\xFF,\"\xC3\""), (std::vector<std::string>{"\xEF\xBF\xBD", "\xEF\xBF\xBD"}));
}

TEST(CsvFieldTest, QuotesValuesOnlyWhenNeededAndRoundTrips) {
  EXPECT_EQ(quoteValue("plain", ',', true), "\"plain\"");
  EXPECT_EQ(quoteValue("a;b", ';', false), "\"a;b\"");
  EXPECT_EQ(quoteValue("say \"hi\"", ',', false), "\"say \"\"hi\"\"\"");
  EXPECT_EQ(quoteValue("two\nlines", '\t', false), "\"two\nlines\"");
  for (const std::string value : {"", "a,b", "\"", "x\"\"y", "\r\n", " lead"}) {
    const std::string written = quoteValue(value, ',', false);
    EXPECT_EQ(values(written), std::vector<std::string>{value}) << written;
  }
}

CSVStructureStats stats(int64_t columns, int64_t rows, int64_t malformed, int64_t run) {
  return {columns, rows, malformed, run, {}, false};
}

TEST(CsvParseStateTest, GradesStructure) {
  using enum CSVParseState;
  EXPECT_EQ(gradeState(stats(3, 100, 0, 0)), normal);
  EXPECT_EQ(gradeState(stats(3, 100, 10, 1)), warning);
  EXPECT_EQ(gradeState(stats(3, 100, 11, 1)), degraded);
  EXPECT_EQ(gradeState(stats(3, 1000, 21, 21)), degraded);
  EXPECT_EQ(gradeState(stats(3, 1000, 20, 20)), warning);
  EXPECT_EQ(gradeState(stats(0, 10, 0, 0)), failed);
  EXPECT_EQ(cellEditRefusal(warning, false), std::nullopt);
  EXPECT_NE(cellEditRefusal(degraded, false), std::nullopt);
  EXPECT_NE(cellEditRefusal(normal, true), std::nullopt);
}

TEST(CsvParseStateTest, AnnouncesWorseningAtOnceAndImprovementOnTheSecondGrading) {
  using enum CSVParseState;
  CSVStateAnnouncer announcer;
  EXPECT_EQ(announcer.observe(warning), std::nullopt);  // first grading: adopted silently
  EXPECT_EQ(announcer.observe(degraded),
            "CSV structure changed. Column editing disabled until structure is repaired.");
  EXPECT_EQ(announcer.observe(normal), std::nullopt);
  EXPECT_EQ(announcer.effectiveState(), degraded);
  EXPECT_EQ(announcer.observe(normal), "CSV structure repaired — full editing available");
  EXPECT_EQ(announcer.observe(warning), "CSV structure issues detected — state: Warning");
  EXPECT_EQ(announcer.observe(failed), "CSV structure issues detected — state: Failed");
  // An interrupted improvement starts counting again.
  EXPECT_EQ(announcer.observe(warning), std::nullopt);
  EXPECT_EQ(announcer.observe(failed), std::nullopt);
  EXPECT_EQ(announcer.observe(warning), std::nullopt);
  EXPECT_EQ(announcer.observe(normal), std::nullopt);
  EXPECT_EQ(announcer.observe(normal), "CSV structure repaired — full editing available");
  EXPECT_EQ(announcer.observe(degraded),
            "CSV structure changed. Column editing disabled until structure is repaired.");
  EXPECT_EQ(announcer.observe(warning), std::nullopt);
  EXPECT_EQ(announcer.observe(warning), "CSV state improved — Warning");
}

TEST(CsvParseStateTest, AnnouncesAFreshIndexOnce) {
  using enum CSVParseState;
  CSVStateAnnouncer announcer;
  EXPECT_EQ(announcer.adoptFreshIndex(stats(3, 5000, 1234, 1), warning),
            "CSV parsed with 1,234 problematic rows — see gutter markers");
  EXPECT_EQ(announcer.adoptFreshIndex(stats(3, 50, 1, 1), warning),
            "CSV parsed with 1 problematic row — see gutter markers");
  EXPECT_EQ(announcer.adoptFreshIndex(stats(3, 50, 30, 30), degraded),
            "CSV structure issues. Column editing disabled.");
  EXPECT_EQ(announcer.adoptFreshIndex(stats(0, 0, 0, 0), degraded), std::nullopt);
  EXPECT_EQ(announcer.effectiveState(), degraded);
  EXPECT_EQ(CSVStateAnnouncer(".").adoptFreshIndex(stats(3, 5'000'000, 1'234'567, 1), warning),
            "CSV parsed with 1.234.567 problematic rows — see gutter markers");
}

}  // namespace
}  // namespace quorin::csv
