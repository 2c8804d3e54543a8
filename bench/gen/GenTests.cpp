#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "gen/CsvGenerator.h"
#include "gen/Format.h"
#include "gen/LogGenerator.h"
#include "gen/Output.h"

namespace quorin::gen {
namespace {

std::string logText(uint64_t seed, int64_t size) {
  LogGenerator generator(seed);
  return generate(generator, size);
}

std::string csvText(uint64_t seed, int64_t size) {
  CsvGenerator generator(seed);
  return generate(generator, size);
}

std::vector<std::string_view> lines(std::string_view text) {
  std::vector<std::string_view> result;
  for (size_t start = 0, end; start < text.size(); start = end + 1) {
    end = text.find('\n', start);
    result.push_back(text.substr(start, end - start));
  }
  return result;
}

bool isValidUtf8(std::string_view text) {
  for (size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    const size_t length = lead < 0x80           ? 1
                          : (lead >> 5) == 0x6  ? 2
                          : (lead >> 4) == 0xE  ? 3
                          : (lead >> 3) == 0x1E ? 4
                                                : 0;
    if (length == 0 || i + length > text.size()) return false;
    for (size_t k = 1; k < length; ++k)
      if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) return false;
    i += length;
  }
  return true;
}

// RFC 4180 records, each as its list of fields; quoted fields are unescaped.
std::vector<std::vector<std::string>> parseCsv(std::string_view text) {
  std::vector<std::vector<std::string>> records(1);
  std::string field;
  bool quoted = false;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (quoted && c == '"' && i + 1 < text.size() && text[i + 1] == '"')
      field.push_back(text[++i]);
    else if (c == '"')
      quoted = !quoted;
    else if (!quoted && c == ',')
      records.back().push_back(std::exchange(field, {}));
    else if (!quoted && c == '\n') {
      records.back().push_back(std::exchange(field, {}));
      records.emplace_back();
    } else
      field.push_back(c);
  }
  records.pop_back();  // the empty one after the final newline
  return records;
}

// FNV-1a: a fixed fingerprint to notice when generated data changes, which
// makes benchmark figures before and after the change incomparable.
uint64_t fingerprint(std::string_view text) {
  uint64_t hash = 0xcbf29ce484222325ULL;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3ULL;
  return hash;
}

TEST(Generators, OutputDependsOnlyOnSeedAndSize) {
  EXPECT_EQ(logText(7, 300'000), logText(7, 300'000));
  EXPECT_NE(logText(7, 300'000), logText(8, 300'000));
  EXPECT_EQ(csvText(7, 300'000), csvText(7, 300'000));
  EXPECT_NE(csvText(7, 300'000), csvText(8, 300'000));
  // A larger size extends the same stream.
  EXPECT_TRUE(logText(7, 600'000).starts_with(logText(7, 300'000)));
}

TEST(Generators, OutputMatchesTheRecordedFingerprint) {
  EXPECT_EQ(fingerprint(logText(1, 1 << 20)), 5072082256905557807u) << "log data changed";
  EXPECT_EQ(fingerprint(csvText(1, 1 << 20)), 2516106090667433299u) << "csv data changed";
}

TEST(Generators, StopAtTheFirstLineEndingAtOrPastTheSize) {
  EXPECT_EQ(logText(3, 0), "");
  for (const int64_t size : {1, 150, 4'096, 250'000}) {
    const std::string text = logText(3, size);
    ASSERT_GE(static_cast<int64_t>(text.size()), size);
    EXPECT_EQ(text.back(), '\n');
    const size_t lastLineStart = text.rfind('\n', text.size() - 2) + 1;  // 0 when there is one line
    EXPECT_LT(static_cast<int64_t>(lastLineStart), size);
  }
}

TEST(Generators, FileOutputInBlocksEqualsInMemoryOutput) {
  const int64_t size = 9 << 20;  // crosses the writer's block size twice
  std::FILE* file = std::tmpfile();
  ASSERT_NE(file, nullptr);
  LogGenerator generator(5);
  const auto written = writeRecords(generator, size, fileno(file));
  ASSERT_TRUE(written.has_value());
  std::string text(static_cast<size_t>(*written), '\0');
  std::rewind(file);
  ASSERT_EQ(std::fread(text.data(), 1, text.size(), file), text.size());
  std::fclose(file);
  EXPECT_EQ(text, logText(5, size));
}

TEST(LogGenerator, LinesAreTimestampedEntriesOrStackTraces) {
  const std::string text = logText(11, 8 << 20);
  ASSERT_TRUE(isValidUtf8(text));
  std::string_view lastTimestamp;
  bool inTrace = false;
  int traces = 0, longLines = 0, nonAscii = 0;
  for (const std::string_view line : lines(text)) {
    const bool entry =
        line.size() > 30 && line[4] == '-' && line[10] == 'T' && line[19] == '.' && line[23] == 'Z';
    if (entry) {
      const std::string_view timestamp = line.substr(0, 24), level = line.substr(25, 5);
      ASSERT_GE(timestamp, lastTimestamp) << line;
      ASSERT_TRUE(level == "DEBUG" || level == "INFO " || level == "WARN " || level == "ERROR" ||
                  level == "FATAL")
          << line;
      lastTimestamp = timestamp;
      inTrace = level == "ERROR" || level == "FATAL";
    } else {
      ASSERT_TRUE(inTrace) << "continuation line outside a stack trace: " << line;
      traces += line.starts_with("Caused by: ") ? 0 : !line.starts_with('\t');
    }
    longLines += line.size() > 2'000;
    nonAscii += std::ranges::any_of(line, [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
  }
  EXPECT_GT(traces, 10);
  EXPECT_GT(longLines, 10);
  EXPECT_GT(nonAscii, 1'000);
}

TEST(CsvGenerator, EveryRecordHasAllColumns) {
  const std::string text = csvText(13, 4 << 20);
  ASSERT_TRUE(isValidUtf8(text));
  const auto records = parseCsv(text);
  ASSERT_GT(records.size(), 10'000u);
  EXPECT_EQ(records[0][0], "order_id");
  int multiLine = 0, withQuote = 0;
  for (const auto& record : records) {
    ASSERT_EQ(record.size(), static_cast<size_t>(CsvGenerator::kColumnCount)) << record[0];
    for (const auto& field : record) {
      multiLine += field.find('\n') != std::string::npos;
      withQuote += field.find('"') != std::string::npos;
    }
  }
  EXPECT_GT(multiLine, 0);
  EXPECT_GT(withQuote, 0);
}

TEST(Format, TimestampsAndFixedPoint) {
  const auto iso = [](int64_t ms) {
    std::string out;
    appendIsoMillis(out, ms);
    return out;
  };
  EXPECT_EQ(iso(0), "1970-01-01T00:00:00.000Z");
  EXPECT_EQ(iso(-1), "1969-12-31T23:59:59.999Z");
  EXPECT_EQ(iso(daysFromCivil(2024, 2, 29) * 86'400'000 + 86'399'999), "2024-02-29T23:59:59.999Z");
  EXPECT_EQ(iso(daysFromCivil(2100, 3, 1) * 86'400'000 + 45'296'789), "2100-03-01T12:34:56.789Z");
  const auto fixed = [](int64_t units, int decimals) {
    std::string out;
    appendFixed(out, units, decimals);
    return out;
  };
  EXPECT_EQ(fixed(12'995, 2), "129.95");
  EXPECT_EQ(fixed(5, 2), "0.05");
  EXPECT_EQ(fixed(-5, 1), "-0.5");
  EXPECT_EQ(fixed(7, 0), "7");
}

TEST(ParseSize, SuffixesArePowersOf1024) {
  EXPECT_EQ(parseSize("512"), 512);
  EXPECT_EQ(parseSize("64K"), 64 << 10);
  EXPECT_EQ(parseSize("200m"), 200 << 20);
  EXPECT_EQ(parseSize("2G"), int64_t{2} << 30);
  for (const std::string_view bad : {"", "M", "-1", "1.5G", "12X", "10 M", "99999999999G"})
    EXPECT_EQ(parseSize(bad), std::nullopt) << bad;
}

}  // namespace
}  // namespace quorin::gen
