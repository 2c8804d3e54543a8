#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <vector>

#include "logs/Timestamp.h"
#include "logs/TimestampParser.h"

namespace quorin::logs {
namespace {

using F = TimestampFormat;

constexpr int64_t kSecond = 1'000'000;
constexpr int64_t kHour = 3600 * kSecond;

// The reference: the C library's own calendar arithmetic.
int64_t at(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
  std::tm tm{};
  tm.tm_year = year - 1900;
  tm.tm_mon = month - 1;
  tm.tm_mday = day;
  tm.tm_hour = hour;
  tm.tm_min = minute;
  tm.tm_sec = second;
  return static_cast<int64_t>(timegm(&tm)) * kSecond;
}

struct Case {
  F format;
  std::string line;
  int64_t micros;
  bool zoned, hasYear;
};

TEST(TimestampTest, ParsesEveryFormat) {
  const Case cases[] = {
      {F::iso8601, "2026-11-23T10:00:00Z started", at(2026, 11, 23, 10), true, true},
      {F::iso8601, "2026-11-23 10:00:00,123 INFO log4j", at(2026, 11, 23, 10) + 123'000, false, true},
      {F::iso8601, "[2026-11-23T10:00:00.123456+05:30] x",
       at(2026, 11, 23, 10) + 123'456 - 5 * kHour - 1800 * kSecond, true, true},
      {F::iso8601, "2026-11-23T10:00:00.1234567-07:00", at(2026, 11, 23, 17) + 123'456, true, true},
      {F::iso8601, "2026-11-23 10:00:00 +0530 x", at(2026, 11, 23, 4, 30), true, true},
      {F::iso8601, "2024-02-29 23:59:60 leap", at(2024, 3, 1), false, true},
      {F::rfc5424, "<34>1 2026-11-23T10:00:00.003Z host app - - msg", at(2026, 11, 23, 10) + 3000, true,
       true},
      {F::slashDate, "2026/11/23 10:00:00 x", at(2026, 11, 23, 10), false, true},
      {F::accessLog, "127.0.0.1 - - [10/Oct/2026:13:55:36 -0700] \"GET /\"", at(2026, 10, 10, 20, 55, 36),
       true, true},
      {F::ctime, "Mon Nov 23 10:00:00 2026 x", at(2026, 11, 23, 10), false, true},
      {F::ctime, "Tue Nov  3 10:00:00 2026", at(2026, 11, 3, 10), false, true},
      {F::usDate, "11/23/2026 10:00:00 AM x", at(2026, 11, 23, 10), false, true},
      {F::usDate, "11/23/2026 12:00:00 AM", at(2026, 11, 23, 0), false, true},
      {F::usDate, "11/23/2026 12:30:00 PM", at(2026, 11, 23, 12, 30), false, true},
      {F::usDate, "1/5/2026, 1:02:03 pm", at(2026, 1, 5, 13, 2, 3), false, true},
      {F::usDate, "11/23/2026 22:00:00 x", at(2026, 11, 23, 22), false, true},
      {F::europeanDate, "23.11.2026 10:00:00 x", at(2026, 11, 23, 10), false, true},
      {F::epochMillis, "1795428000123 x", 1'795'428'000'123'000, true, true},
      {F::epochSeconds, "1795428000.5 x", 1'795'428'000'500'000, true, true},
      {F::syslog, "Nov 23 10:00:00 host sshd[1]: x", at(2026, 11, 23, 10), false, false},
      {F::syslog, "<13>Feb  3 01:02:03 host", at(2026, 2, 3, 1, 2, 3), false, false},
      {F::glog, "I1123 10:00:00.123456 1234 main.cc:1] x", at(2026, 11, 23, 10) + 123'456, false, false},
      {F::timeOfDay, "10:00:00.123 x", 10 * kHour + 123'000, false, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.line);
    const auto time = parseTimestamp(c.format, c.line, 2026);
    ASSERT_TRUE(time.has_value());
    EXPECT_EQ(time->micros, c.micros);
    EXPECT_EQ(time->zoned, c.zoned);
    EXPECT_EQ(time->hasYear, c.hasYear);
    EXPECT_EQ(time->hasDate, c.format != F::timeOfDay);
    EXPECT_TRUE(time->begin <= time->end && time->end <= static_cast<int32_t>(c.line.size()));
  }
  // The span excludes the bracket and covers fraction and zone.
  const auto span = parseTimestamp(F::iso8601, "[2026-11-23 10:00:00.5Z] x", 0);
  EXPECT_EQ(span->begin, 1);
  EXPECT_EQ(span->end, 23);
}

TEST(TimestampTest, RefusesOutOfRangeAndMisplacedTimestamps) {
  const std::pair<F, std::string> refused[] = {
      {F::iso8601, "2026-02-31 10:00:00"},
      {F::iso8601, "2025-02-29 10:00:00"},
      {F::iso8601, "0000-01-01 10:00:00"},
      {F::iso8601, "2026-13-01 10:00:00"},
      {F::iso8601, "2026-11-23 24:00:00"},
      {F::iso8601, "2026-11-23 10:60:00"},
      {F::iso8601, "2026-11-23 10:00:61"},
      {F::iso8601, "2026-11-23 10:00:001"},
      {F::iso8601, "x 2026-11-23 10:00:00"},
      {F::iso8601, " 2026-11-23 10:00:00"},
      {F::usDate, "11/23/2026 13:00:00 PM"},
      {F::usDate, "11/23/2026 00:00:00 AM"},
      {F::syslog, "Foo 23 10:00:00 host"},
      {F::syslog, "Nov 31 10:00:00 host"},
      {F::rfc5424, "<192>1 2026-11-23T10:00:00Z"},
      {F::ctime, "Mon Nov 23 10:00:00 0000"},
      {F::epochSeconds, "0299999999,12,5"},
      {F::epochSeconds, "0300000000"},
      {F::epochSeconds, "12345678901 x"},
      {F::epochMillis, "0299999999999,1"},
      {F::glog, "X1123 10:00:00.1 x"},
      {F::timeOfDay, "1:00:00 x"},
  };
  for (const auto& [format, line] : refused) EXPECT_FALSE(parseTimestamp(format, line, 2026)) << line;

  // The access-log shape is looked for in the first 128 bytes only.
  const std::string late = std::string(130, 'x') + " [10/Oct/2026:13:55:36 -0700]";
  EXPECT_FALSE(parseTimestamp(F::accessLog, late, 2026));
}

TEST(TimestampTest, GarbageAndHugeLinesNeverCrash) {
  std::string binary;
  for (int i = 0; i < 512; ++i) binary.push_back(static_cast<char>(i * 37));
  const std::string huge(1 << 20, '1');
  const std::string hugeDated = "2026-11-23 10:00:00 " + std::string(1 << 20, '[');
  for (const F format : kTimestampFormats) {
    for (const std::string_view line : {std::string_view(), std::string_view("<"), std::string_view("[<12"),
                                        std::string_view(binary), std::string_view(huge)})
      EXPECT_FALSE(parseTimestamp(format, line, 2026)) << name(format);
    EXPECT_EQ(parseTimestamp(format, hugeDated, 2026).has_value(), format == F::iso8601) << name(format);
  }
}

TEST(TimestampParserTest, ReusesTheMinuteButReadsSecondsZoneAndMeridiem) {
  TimestampParser iso(F::iso8601, 2026);
  EXPECT_EQ(iso.parse("2026-11-23 10:00:01 a")->micros, at(2026, 11, 23, 10, 0, 1));
  EXPECT_EQ(iso.parse("2026-11-23 10:00:02.5 b")->micros, at(2026, 11, 23, 10, 0, 2) + 500'000);
  const auto zoned = iso.parse("2026-11-23 10:00:03+01:00 c");
  EXPECT_EQ(zoned->micros, at(2026, 11, 23, 9, 0, 3));
  EXPECT_TRUE(zoned->zoned);
  EXPECT_EQ(zoned->offsetSeconds, 3600);
  // The same minute with another zone: the offset is read again, not reused.
  EXPECT_EQ(iso.parse("2026-11-23 10:00:04-05:30 c")->offsetSeconds, -19800);
  EXPECT_EQ(iso.parse("2026-11-23 10:00:05Z c")->offsetSeconds, 0);
  EXPECT_EQ(parseTimestamp(F::accessLog, "[10/Oct/2026:13:55:36 -0700]", 0)->offsetSeconds, -25200);
  EXPECT_FALSE(iso.parse("2026-11-23 10:00:99 bad"));
  EXPECT_FALSE(iso.parse("    at Main.run(Main.java:1)"));
  EXPECT_EQ(iso.parse("2026-11-23 10:01:00 d")->micros, at(2026, 11, 23, 10, 1));

  TimestampParser us(F::usDate, 2026);
  EXPECT_EQ(us.parse("11/23/2026 12:00:01 AM")->micros, at(2026, 11, 23, 0, 0, 1));
  EXPECT_EQ(us.parse("11/23/2026 12:00:02 PM")->micros, at(2026, 11, 23, 12, 0, 2));
}

TEST(TimestampParserTest, TriesTheFamilyOfThePrimaryFormatOnly) {
  TimestampParser iso(F::iso8601, 2026);
  EXPECT_TRUE(iso.parse("<34>1 2026-11-23T10:00:00Z host"));
  EXPECT_EQ(iso.lastFormat(), F::rfc5424);
  EXPECT_TRUE(iso.parse("2026-11-23T10:00:01Z x"));
  EXPECT_FALSE(iso.parse("Nov 23 10:00:00 host"));

  TimestampParser epoch(F::epochSeconds, 2026);
  EXPECT_EQ(epoch.parse("1795428000123 x")->micros, 1'795'428'000'123'000);
  EXPECT_EQ(epoch.lastFormat(), F::epochMillis);
}

TEST(TimestampParserTest, YearlessTimesStepTheYearAtNewYear) {
  TimestampParser syslog(F::syslog, 2026);
  EXPECT_EQ(syslog.parse("Dec 31 23:59:59 h")->micros, at(2026, 12, 31, 23, 59, 59));
  EXPECT_EQ(syslog.parse("Jan  1 00:00:05 h")->micros, at(2027, 1, 1, 0, 0, 5));
  // A jump back of less than a day (interleaved sources) keeps the year.
  EXPECT_EQ(syslog.parse("Jan  1 00:00:01 h")->micros, at(2027, 1, 1, 0, 0, 1));
  EXPECT_EQ(syslog.yearSteps(), 1);

  TimestampParser glog(F::glog, 2026);
  EXPECT_TRUE(glog.parse("I1231 23:00:00.000001 1 a.cc:1] x"));
  EXPECT_EQ(glog.parse("E0101 01:00:00.000002 1 a.cc:2] y")->micros, at(2027, 1, 1, 1) + 2);
}

TEST(TimestampDetectTest, PicksTheFormatOfMostLines) {
  const auto detect = [](std::vector<std::string_view> lines) { return detectTimestampFormat(lines); };
  EXPECT_EQ(detect({"2026-11-23 10:00:00,001 ERROR x", "java.lang.Exception: boom", "\tat A.b(A.java:1)", "",
                    "2026-11-23 10:00:01,002 INFO y"}),
            F::iso8601);
  EXPECT_EQ(detect({"Nov 23 10:00:00 h a", "Nov 23 10:00:01 h b", "<34>1 2026-11-23T10:00:02Z h c"}),
            F::syslog);
  // Ties go to the format with a date and a year.
  EXPECT_EQ(detect({"10:00:00 x", "2026-11-23 10:00:00 y"}), F::iso8601);
  EXPECT_EQ(detect({"[10/Oct/2026:13:55:36 -0700] GET", "1795428000 x", "1795428001 y"}), F::epochSeconds);

  EXPECT_EQ(detect({}), std::nullopt);
  EXPECT_EQ(detect({"id,count", "0123456789,5", "0000004711,7", "0299999999,1"}), std::nullopt);
  std::vector<std::string_view> sparse(19, "plain text");
  sparse.push_back("2026-11-23 10:00:00 x");  // 1 in 20: too few
  EXPECT_EQ(detect(sparse), std::nullopt);
  sparse.back() = "2026-11-23 10:00:00 x";
  sparse.front() = "2026-11-23 10:00:01 y";  // 2 in 20
  EXPECT_EQ(detect(sparse), F::iso8601);
}

}  // namespace
}  // namespace quorin::logs
