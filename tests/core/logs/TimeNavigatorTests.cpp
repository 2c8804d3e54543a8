#include <gtest/gtest.h>

#include "NavigatorTestSupport.h"
#include "logs/Messages.h"
#include "logs/TimeNavigator.h"

namespace quorin::logs {
namespace {

using F = TimestampFormat;

constexpr int64_t kSecond = 1'000'000;

struct Log {
  LogDoc doc;
  LogIndexData data;
  Log(std::string_view text, F format, int64_t blockLines = 3, int32_t firstYear = 2026)
      : doc(text), data(handBuiltIndex(splitLines(text), format, firstYear, blockLines)) {}

  std::expected<TimeJump, TimeRefusal> go(const TimeInput& input, int64_t caret = 0) const {
    return resolveTime(data, doc.source(), input, caret);
  }
  // The line a time lands on, -1 when refused.
  int64_t line(const TimeInput& input, int64_t caret = 0) const {
    const auto jump = go(input, caret);
    return jump ? jump->line : -1;
  }
};

TimeTarget at(int y, int mo, int d, std::optional<int> h = {}, std::optional<int> mi = {},
              std::optional<int> s = {}) {
  return {y, mo, d, h, mi, s};
}
TimeTarget clock(int h, int mi, std::optional<int> s = {}) { return {{}, {}, {}, h, mi, s}; }
TimeOffsetTarget offset(double seconds) { return {seconds}; }

constexpr std::string_view kLog =
    "starting up\n"                                 // 0: before the first timestamp
    "2026-03-19 23:59:59,500 INFO late\n"           // 1
    "2026-03-20 12:00:00,000 INFO noon\n"           // 2
    "2026-03-20 12:00:01,250 ERROR boom\n"          // 3
    "    at Main.run(Main.java:1)\n"                // 4: continuation
    "2026-03-20 11:00:00,000 WARN other source\n"   // 5: time jumps back
    "2026-03-20 12:00:30,000 INFO half a minute\n"  // 6
    "2026-03-20 12:05:00,000 INFO five minutes\n"   // 7
    "2026-03-21 00:00:00,000 INFO next day";        // 8

TEST(TimeNavigatorTest, ResolvesTimesInFileOrder) {
  const Log log(kLog, F::iso8601);
  EXPECT_EQ(log.line(at(2026, 3, 20, 12, 0, 1)), 3);
  EXPECT_EQ(log.line(at(2026, 3, 20, 12, 0)), 2);     // absent second: start of the minute
  EXPECT_EQ(log.line(at(2026, 3, 20)), 2);            // absent clock: start of the day
  EXPECT_EQ(log.line(at(2026, 3, 20, 11, 30)), 2);    // first in file order, not line 5
  EXPECT_EQ(log.line(at(2026, 3, 20, 12, 0, 2)), 6);  // the jump back is passed over
  EXPECT_EQ(log.line(at(2020, 1, 1)), 1);             // before everything: the first timestamp
  EXPECT_EQ(log.line(clock(12, 1), 4), 7);            // the caret line's day
  EXPECT_EQ(log.line(clock(12, 1), 1), 1);            // … which is the 19th on line 1
  EXPECT_EQ(log.line(offset(28), 4), 6);              // from the continuation's message time
  EXPECT_EQ(log.line(offset(-86'401), 8), 1);
  EXPECT_EQ(log.go(at(2026, 3, 20, 12, 0, 1))->notice, "");

  const auto past = log.go(at(2026, 3, 22));
  ASSERT_TRUE(past);
  EXPECT_EQ(past->line, 8);
  EXPECT_TRUE(past->pastEnd);
  EXPECT_EQ(past->notice, "Past the last timestamp (2026-03-21 00:00:00) — went to the last line");

  // The block size does not change an answer.
  for (const int64_t blockLines : {1, 2, 4, 100}) {
    const Log other(kLog, F::iso8601, blockLines);
    EXPECT_EQ(other.line(at(2026, 3, 20, 12, 0, 2)), 6) << blockLines;
    EXPECT_EQ(other.line(at(2026, 3, 20, 11, 30)), 2) << blockLines;
  }
}

TEST(TimeNavigatorTest, RefusesWithoutTimestampsOrAStartingTime) {
  const Log log(kLog, F::iso8601);
  const auto above = log.go(clock(12, 0), 0);
  ASSERT_FALSE(above);
  EXPECT_EQ(above.error().kind, TimeRefusal::Kind::caretWithoutTime);
  EXPECT_FALSE(log.go(offset(5), 0));
  EXPECT_EQ(log.line(at(2026, 3, 20, 12, 5), 0), 7);  // a full date needs no caret time

  Log plain("just text\nno times\n", F::iso8601);
  plain.data.format.reset();
  const auto refused = plain.go(at(2026, 1, 1));
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().kind, TimeRefusal::Kind::noTimestamps);

  // Not yet indexed as far as a timestamp.
  Log early(kLog, F::iso8601);
  early.data = LogIndexData{};
  early.data.format = F::iso8601;
  EXPECT_EQ(early.go(at(2026, 1, 1)).error().kind, TimeRefusal::Kind::notIndexed);
  // Indexed in part: a time past it goes to the last line indexed.
  Log partial(kLog, F::iso8601);
  partial.data.blocks.resize(1);
  partial.data.linesIndexed = 3;
  partial.data.complete = false;
  const auto jump = partial.go(at(2026, 3, 21));
  EXPECT_EQ(jump->line, 2);
  EXPECT_TRUE(jump->pastEnd);
}

TEST(TimeNavigatorTest, YearlessLogsAndTimesOfDay) {
  // Read from 2025, the log turns the year after line 1.
  const Log syslog(
      "Dec 31 23:59:00 host a\n"
      "Dec 31 23:59:30 host b\n"
      "Jan  1 00:00:10 host c\n"
      "Jan  1 00:01:00 host d\n",
      F::syslog, 2, 2025);
  EXPECT_EQ(syslog.line(at(2026, 1, 1)), 2);
  EXPECT_EQ(syslog.line(at(2025, 12, 31, 23, 59, 10)), 1);
  EXPECT_EQ(syslog.line(clock(0, 1), 3), 3);
  EXPECT_EQ(syslog.line(clock(23, 59, 20), 0), 1);
  EXPECT_EQ(syslog.line(offset(-50), 3), 2);

  // A log of times of day alone keeps only the clock of a typed date.
  const Log times("10:00:00 a\n11:00:00 b\n", F::timeOfDay);
  EXPECT_EQ(times.line(at(2026, 5, 5, 10, 30)), 1);
  EXPECT_EQ(times.line(clock(10, 30)), 1);
}

TEST(TimeNavigatorTest, MessagesAndTheStatusBarText) {
  const Log log(kLog, F::iso8601);
  const SeverityRules rules;
  // A continuation's time is its head's, to the end of the head's timestamp.
  EXPECT_EQ(messageAt(log.data, log.doc.source(), rules, 4).time->end, 23);
  EXPECT_EQ(describeTimeAt(log.data, log.doc.source(), rules, 4),
            "2026-03-20 12:00:01.250 · +1.25 s since previous");
  EXPECT_EQ(describeTimeAt(log.data, log.doc.source(), rules, 5),
            "2026-03-20 11:00:00 · -1 h 0 min since previous");
  EXPECT_EQ(describeTimeAt(log.data, log.doc.source(), rules, 1), "2026-03-19 23:59:59.500");
  EXPECT_EQ(describeTimeAt(log.data, log.doc.source(), rules, 0), "");

  const Log zoned("2026-03-20T10:00:00.000001+05:30 a\n2026-03-20T10:00:00.5+05:30 b", F::iso8601);
  EXPECT_EQ(describeTimeAt(zoned.data, zoned.doc.source(), rules, 1),
            "2026-03-20 10:00:00.500 · +499 ms since previous");
  EXPECT_EQ(describeTimeAt(zoned.data, zoned.doc.source(), rules, 0), "2026-03-20 10:00:00.000001");

  // Without timestamps every line is its own message.
  Log plain("ERROR one\nplain two\n", F::iso8601);
  plain.data.format.reset();
  EXPECT_EQ(messageAt(plain.data, plain.doc.source(), rules, 1).headLine, 1);
  EXPECT_EQ(messageAt(plain.data, plain.doc.source(), rules, 0).level, Level::error);

  EXPECT_EQ(formatDuration(3 * kSecond), "+3 s");
  EXPECT_EQ(formatDuration(-200 * kSecond), "-3 min 20 s");
  EXPECT_EQ(formatDuration(2 * 86'400 * kSecond + 3600 * kSecond), "+2 d 1 h");
  EXPECT_EQ(formatDuration(7), "+7 µs");
  EXPECT_EQ(formatDuration(INT64_MIN).front(), '-');
}

}  // namespace
}  // namespace quorin::logs
