#include <gtest/gtest.h>

#include "logs/GoToTarget.h"

namespace quorin::logs {
namespace {

using Kind = ParseFailure::Kind;

std::expected<GoToTarget, ParseFailure> parse(std::string_view text) { return parseGoToTarget(text); }

ParseFailure failure(Kind kind, std::string text = {}) { return {kind, std::move(text)}; }

TimeTarget time(std::optional<int> year, std::optional<int> month, std::optional<int> day,
                std::optional<int> hour, std::optional<int> minute, std::optional<int> second) {
  return {year, month, day, hour, minute, second};
}

TEST(GoToTargetTest, ParsesLinesPercentagesBytesAndRecords) {
  EXPECT_EQ(parse("  42  "), GoToTarget(LineTarget{42}));
  EXPECT_EQ(parse("0").error(), failure(Kind::targetInvalid, "Line numbers start at 1"));
  // A number that does not fit in 64 bits is refused, not read as another one.
  EXPECT_EQ(parse("9223372036854775807"), GoToTarget(LineTarget{INT64_MAX}));
  for (const char* tooBig : {"9223372036854775808", "99999999999999999999"})
    EXPECT_EQ(parse(tooBig).error().kind, Kind::notRecognized) << tooBig;

  EXPECT_EQ(parse("50%"), GoToTarget(PercentTarget{50}));
  EXPECT_EQ(parse("50 %"), GoToTarget(PercentTarget{50}));
  EXPECT_EQ(parse("100%"), GoToTarget(PercentTarget{100}));
  for (const char* bad : {"101%", "%", "-1%", "abc%", "1e2%"})
    EXPECT_EQ(parse(bad).error(), failure(Kind::targetInvalid, "Percent must be a number from 0 to 100: 50%"))
        << bad;

  EXPECT_EQ(parse("B1234"), GoToTarget(ByteTarget{1234}));
  for (const char* bad : {"b", "b-1", "b1.5", "bx", "b99999999999999999999"})
    EXPECT_EQ(parse(bad).error(), failure(Kind::targetInvalid, "Byte offset needs a whole number: b1234"))
        << bad;

  EXPECT_EQ(parse("r1"), GoToTarget(RecordTarget{1}));
  for (const char* bad : {"r0", "r", "r-3", "row", "r9223372036854775808"})
    EXPECT_EQ(parse(bad).error(), failure(Kind::targetInvalid, "Record needs a whole number from 1: r1234"))
        << bad;

  EXPECT_EQ(parse("   ").error(), failure(Kind::empty));
  EXPECT_EQ(parse("hello").error().kind, Kind::notRecognized);
  EXPECT_EQ(parse("").error().message(), "");
}

TEST(GoToTargetTest, ParsesTimeOffsets) {
  EXPECT_EQ(parse("+1.5h"), GoToTarget(TimeOffsetTarget{5400}));
  EXPECT_EQ(parse("-30S"), GoToTarget(TimeOffsetTarget{-30}));
  EXPECT_EQ(parse("-.5m"), GoToTarget(TimeOffsetTarget{-30}));
  const std::string missing = "Offset needs a number and a unit: +5m, -30s, +2h, +1d";
  const std::string unit = "Offset unit must be s, m, h or d: +5m, -30s, +2h, +1d";
  const std::string number = "Offset needs a plain number before the unit: +5m, +1.5h";
  for (const char* bad : {"+", "-", "+5", "+1."})
    EXPECT_EQ(parse(bad).error(), failure(Kind::offsetInvalid, missing));
  EXPECT_EQ(parse("+5w").error(), failure(Kind::offsetInvalid, unit));
  for (const char* bad : {"+m", "+.h", "+1.2.3s", "+-5m", "+1e3s"})
    EXPECT_EQ(parse(bad).error(), failure(Kind::offsetInvalid, number)) << bad;
}

TEST(GoToTargetTest, ParsesTimesAndChecksTheCalendar) {
  EXPECT_EQ(parse("12:34"), GoToTarget(time({}, {}, {}, 12, 34, {})));
  EXPECT_EQ(parse("2026-09-04"), GoToTarget(time(2026, 9, 4, {}, {}, {})));
  EXPECT_EQ(parse("2026-09-04T12:34:56"), GoToTarget(time(2026, 9, 4, 12, 34, 56)));
  EXPECT_EQ(parse("2026-09-0412:34"), GoToTarget(time(2026, 9, 4, 12, 34, {})));
  EXPECT_EQ(parse("2024-02-29"), GoToTarget(time(2024, 2, 29, {}, {}, {})));
  EXPECT_EQ(parse("2000-02-29"), GoToTarget(time(2000, 2, 29, {}, {}, {})));

  auto outOfRange = [](std::string text) { return failure(Kind::timeOutOfRange, std::move(text)); };
  EXPECT_EQ(parse("2023-02-29").error(), outOfRange("Day must be 1 to 28 for that month"));
  EXPECT_EQ(parse("1900-02-29").error(), outOfRange("Day must be 1 to 28 for that month"));
  EXPECT_EQ(parse("2026-04-31").error(), outOfRange("Day must be 1 to 30 for that month"));
  EXPECT_EQ(parse("2026-13-01").error(), outOfRange("Month must be 1 to 12"));
  EXPECT_EQ(parse("24:00").error(), outOfRange("Hour must be 0 to 23"));
  EXPECT_EQ(parse("12:60").error(), outOfRange("Minute must be 0 to 59"));
  EXPECT_EQ(parse("12:00:60").error(), outOfRange("Second must be 0 to 59"));
  // Clock parts are checked before the date.
  EXPECT_EQ(parse("2026-13-40 25:00").error(), outOfRange("Hour must be 0 to 23"));
  for (const char* bad : {"12:34:5:6", "2026-09", "12", "1234-5"}) {
    const auto parsed = parse(bad);
    if (parsed)
      EXPECT_TRUE(std::holds_alternative<LineTarget>(*parsed)) << bad;
    else
      EXPECT_EQ(parsed.error().kind, Kind::notRecognized) << bad;
  }
}

TEST(GoToTargetTest, TimeFieldsTakeOnlyTimesAndOffsets) {
  EXPECT_EQ(parseTimeInput(" +5M "), TimeInput(TimeOffsetTarget{300}));
  EXPECT_EQ(parseTimeInput("09:15"), TimeInput(time({}, {}, {}, 9, 15, {})));
  EXPECT_EQ(parseTimeInput("42").error().kind, Kind::notRecognized);
  EXPECT_EQ(parseWindowEdge("+5m", "From").error(),
            failure(Kind::offsetInvalid, "From: offsets like +5m are not window edges; give a time"));
  EXPECT_EQ(parseWindowEdge("2026-09-04", "To"), time(2026, 9, 4, {}, {}, {}));
}

}  // namespace
}  // namespace quorin::logs
