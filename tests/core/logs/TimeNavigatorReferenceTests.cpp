// Random logs in several formats, indexed by the real index, navigated by
// the time navigator and by a plain scan of every line; both must agree.
#include <gtest/gtest.h>

#include <ctime>
#include <random>

#include "NavigatorTestSupport.h"
#include "logs/TimeNavigator.h"

namespace quorin::logs {
namespace {

using F = TimestampFormat;

constexpr int64_t kSecond = 1'000'000;
constexpr int64_t kDay = 86'400 * kSecond;
constexpr int32_t kYear = 2026;

int64_t floorDiv(int64_t a, int64_t b) { return a / b - (a % b != 0 && (a < 0) != (b < 0)); }

struct Shape {
  F format;
  int32_t offsetSeconds;  // of every timestamp, east of UTC
  bool hasDate;
  int64_t startWall;  // wall time of the first line
};

std::tm civil(int64_t wallMicros) {
  const time_t seconds = static_cast<time_t>(floorDiv(wallMicros, kSecond));
  std::tm tm{};
  gmtime_r(&seconds, &tm);
  return tm;
}

// The timestamp of wall time `wall` in `shape`, followed by a blank.
std::string stamp(const Shape& shape, int64_t wall, std::mt19937& random) {
  static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                            "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const std::tm t = civil(wall);
  const int millis = static_cast<int>(floorDiv(wall, 1000) % 1000);
  char out[96];
  switch (shape.format) {
    case F::iso8601:
      if (shape.offsetSeconds != 0)
        std::snprintf(out, sizeof out, "%04d-%02d-%02dT%02d:%02d:%02d.%03d+05:30 ", t.tm_year + 1900,
                      t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, millis);
      else
        std::snprintf(out, sizeof out, "%s%04d-%02d-%02d %02d:%02d:%02d,%03d ", random() % 4 ? "" : "[",
                      t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, millis);
      break;
    case F::syslog:
      std::snprintf(out, sizeof out, "%s %2d %02d:%02d:%02d host app: ", kMonths[t.tm_mon], t.tm_mday,
                    t.tm_hour, t.tm_min, t.tm_sec);
      break;
    case F::glog:
      std::snprintf(out, sizeof out, "%c%02d%02d %02d:%02d:%02d.%06d 42 main.cc:7] ", "IWEF"[random() % 4],
                    t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, static_cast<int>(wall % kSecond));
      break;
    case F::epochMillis:
      std::snprintf(out, sizeof out, "%lld ", static_cast<long long>(floorDiv(wall, 1000)));
      break;
    default:
      std::snprintf(out, sizeof out, "%02d:%02d:%02d.%03d ", t.tm_hour, t.tm_min, t.tm_sec, millis);
      break;
  }
  return out;
}

struct GeneratedLog {
  std::string text;
  Shape shape;
};

// Times mostly rise by up to three seconds, now and then fall back by up to
// two hours (several sources); a fifth of the lines continue a message.
GeneratedLog generate(const Shape& shape, int lines, std::mt19937& random) {
  static constexpr std::string_view kWords[] = {"INFO started", "ERROR failed", "WARN slow", "DEBUG x=1"};
  GeneratedLog log{random() % 2 ? "preamble line\n" : "", shape};
  int64_t wall = shape.startWall;
  for (int i = 0; i < lines; ++i) {
    const uint32_t pick = random() % 100;
    if (pick < 20) {
      log.text += pick < 3 ? "\n" : "    at com.example.Worker.run(Worker.java:" + std::to_string(i) + ")\n";
      continue;
    }
    if (pick < 23)
      wall -= static_cast<int64_t>(random() % 7200) * kSecond;
    else
      wall += static_cast<int64_t>(random() % 3000) * 1000;
    if (!shape.hasDate) wall = std::clamp<int64_t>(wall, 0, kDay - kSecond);
    log.text +=
        stamp(shape, wall, random) + std::string(kWords[random() % 4]) + " " + std::to_string(i) + "\n";
  }
  return log;
}

struct Expected {
  int64_t line = -1;  // -1: refused as caretWithoutTime
  bool pastEnd = false;
};

// The slow resolver: the message time of every line from the line-by-line
// reference, and the first line at or after the target found by scanning.
Expected reference(const std::vector<LineFacts>& facts, const Shape& shape, const TimeInput& input,
                   int64_t caret) {
  std::optional<int64_t> caretTime;
  for (int64_t l = caret; l >= 0 && !caretTime; --l)
    if (facts[static_cast<size_t>(l)].micros != kNoTime) caretTime = facts[static_cast<size_t>(l)].micros;
  const int64_t offset = int64_t{shape.offsetSeconds} * kSecond;
  int64_t target = 0;
  if (const auto* by = std::get_if<TimeOffsetTarget>(&input)) {
    if (!caretTime) return {};
    target = *caretTime + std::llround(by->seconds * 1e6);
  } else {
    const TimeTarget& t = std::get<TimeTarget>(input);
    int64_t day = 0;
    if (shape.hasDate && t.year) day = daysFromCivil(*t.year, *t.month, *t.day);
    if (shape.hasDate && !t.year) {
      if (!caretTime) return {};
      day = floorDiv(*caretTime + offset, kDay);
    }
    target = day * kDay +
             (t.hour.value_or(0) * 3600 + t.minute.value_or(0) * 60 + t.second.value_or(0)) * kSecond -
             offset;
  }
  for (size_t l = 0; l < facts.size(); ++l)
    if (facts[l].micros != kNoTime && facts[l].micros >= target) return {static_cast<int64_t>(l), false};
  return {static_cast<int64_t>(facts.size()) - 1, true};
}

// A target near a random line's time: a full time, one without seconds, a
// date alone, a clock alone or an offset; some far before or after.
TimeInput randomTarget(const std::vector<LineFacts>& facts, const Shape& shape, std::mt19937& random) {
  int64_t micros = kNoTime;
  while (micros == kNoTime) micros = facts[random() % facts.size()].micros;
  const uint32_t pick = random() % 100;
  if (pick < 12)
    return TimeOffsetTarget{static_cast<double>(static_cast<int>(random() % 2'400'000) - 1'200'000) / 1000};
  int64_t wall = micros + int64_t{shape.offsetSeconds} * kSecond +
                 static_cast<int64_t>(random() % 10'000'000) - 5 * kSecond;
  if (pick < 16) wall += (pick < 14 ? 1 : -1) * 3 * kDay;
  const std::tm t = civil(wall);
  TimeTarget target{t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec};
  if (pick < 30) target.second.reset();
  if (pick >= 30 && pick < 38) target.hour = target.minute = target.second = std::nullopt;
  if (pick >= 38 && pick < 55) target.year = target.month = target.day = std::nullopt;
  return target;
}

TEST(TimeNavigatorReferenceTest, RandomLogsAgreeWithALineByLineScan) {
  const int64_t start = daysFromCivil(kYear, 3, 20) * kDay + 9 * 3600 * kSecond;
  const int64_t newYearsEve = daysFromCivil(kYear - 1, 12, 31) * kDay + 22 * 3600 * kSecond;
  const Shape shapes[] = {
      {F::iso8601, 0, true, start},      {F::iso8601, 19'800, true, start},
      {F::syslog, 0, true, newYearsEve}, {F::glog, 0, true, newYearsEve},
      {F::epochMillis, 0, true, start},  {F::timeOfDay, 0, false, 3600 * kSecond},
  };
  std::mt19937 random(20'260'320);
  dispatch::WorkerPool pool(2);
  const SeverityRules rules;
  for (const Shape& shape : shapes) {
    const GeneratedLog log = generate(shape, 14'000, random);
    const LogDoc doc(log.text);
    const LogIndexData data = buildLogIndex(doc.source(), rules, {.modificationYear = kYear}, &pool);
    ASSERT_EQ(data.format, shape.format);
    ASSERT_GT(data.blocks.size(), 2u);
    const auto facts = referenceFacts(log.text, data.format, rules, kYear);
    ASSERT_EQ(static_cast<int64_t>(facts.size()), data.linesIndexed);
    for (int i = 0; i < 300; ++i) {
      const TimeInput input = randomTarget(facts, shape, random);
      const int64_t caret = static_cast<int64_t>(random() % facts.size());
      const Expected want = reference(facts, shape, input, caret);
      const auto got = resolveTime(data, doc.source(), input, caret);
      SCOPED_TRACE(std::string(name(shape.format)) + " target " + std::to_string(i) + " caret " +
                   std::to_string(caret));
      if (want.line < 0) {
        ASSERT_FALSE(got);
        EXPECT_EQ(got.error().kind, TimeRefusal::Kind::caretWithoutTime);
        continue;
      }
      ASSERT_TRUE(got) << got.error().describe();
      EXPECT_EQ(got->line, want.line);
      EXPECT_EQ(got->pastEnd, want.pastEnd);
    }
    // The message of a line: the nearest timestamped line above, and its time.
    for (int i = 0; i < 100; ++i) {
      const int64_t line = static_cast<int64_t>(random() % facts.size());
      int64_t head = line;
      while (head > 0 && facts[static_cast<size_t>(head)].micros == kNoTime) --head;
      const MessageInfo info = messageAt(data, doc.source(), rules, line);
      EXPECT_EQ(info.headLine, head) << line;
      EXPECT_EQ(info.level, facts[static_cast<size_t>(line)].level) << line;
      const int64_t micros = facts[static_cast<size_t>(head)].micros;
      EXPECT_EQ(info.time ? info.time->micros : kNoTime, micros) << line;
    }
  }
}

}  // namespace
}  // namespace quorin::logs
