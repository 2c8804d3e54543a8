#include <gtest/gtest.h>

#include "LogIndexTestSupport.h"

namespace quorin::logs {
namespace {

LogIndexData build(const LogDoc& doc, int64_t chunkLines, size_t threads, int32_t year = 2026,
                   const SeverityRules& rules = {}) {
  dispatch::WorkerPool pool(threads);
  return buildLogIndex(doc.source(), rules, {.modificationYear = year, .chunkLines = chunkLines}, &pool);
}

void expectReference(const LogDoc& doc, const LogIndexData& data, int32_t year = 2026,
                     const SeverityRules& rules = {}) {
  expectMatches(data, referenceFacts(doc.text(), data.format, rules, year));
}

// Chunks of one block force a join at every block boundary, with messages
// and stack traces running across them; the result must not depend on the
// chunking or the threads.
TEST(LogIndexBuild, MatchesTheLineByLineReferenceWhateverTheChunks) {
  LogDoc doc(generatedLog(1, 30'000));
  const LogIndexData sequential = build(doc, 1 << 30, 1);
  ASSERT_EQ(sequential.format, TimestampFormat::iso8601);
  EXPECT_TRUE(sequential.complete);
  EXPECT_EQ(sequential.blocks.size(), (sequential.linesIndexed + kLogBlockLines - 1) / kLogBlockLines);
  expectReference(doc, sequential);
  for (size_t threads : {1, 2, 3}) {
    const LogIndexData chunked = build(doc, 1, threads);
    expectReference(doc, chunked);
    EXPECT_EQ(chunked.alertLines, sequential.alertLines);
  }
}

TEST(LogIndexBuild, UserRulesDecideBeforeTheDefaults) {
  LogDoc doc(generatedLog(2, 9'000));
  SeverityRules rules;
  ASSERT_TRUE(rules.setUserRules({{.pattern = "message 1", .level = Level::critical}}).has_value());
  const LogIndexData data = build(doc, 1, 2, 2026, rules);
  EXPECT_EQ(data.rulesGeneration, rules.generation());
  EXPECT_FALSE(data.alertLines[levelSlot(Level::critical) - levelSlot(Level::warning)].empty());
  expectReference(doc, data, 2026, rules);
}

// Syslog lines cross New Year twice; whichever chunk a turn falls in, the
// last line lands in the modification year and the blocks carry the years.
TEST(LogIndexBuild, YearlessTimesTurnTheYearAcrossChunks) {
  std::string text;
  static constexpr std::string_view kMonths[] = {"Nov", "Dec", "Jan"};
  int line = 0;
  for (int pass = 0; pass < 2; ++pass) {
    for (int month = 0; month < 3; ++month) {
      for (int i = 0; i < 3000; ++i, ++line) {
        char buffer[80];
        std::snprintf(buffer, sizeof buffer, "%s %2d %02d:%02d:%02d host app: %s %d\n", kMonths[month].data(),
                      1 + i / 120, i / 60 % 24, i % 60, i % 60, i % 7 == 0 ? "error" : "ok", line);
        text += buffer;
      }
    }
  }
  LogDoc doc(text);
  const LogIndexData data = build(doc, 1, 2, 2030);
  ASSERT_EQ(data.format, TimestampFormat::syslog);
  EXPECT_EQ(data.firstYear, 2028);
  EXPECT_EQ(data.blocks.back().enteringYear, 2030);
  expectReference(doc, data, 2030);
  EXPECT_TRUE(data.blocks.front().monotonic);
}

TEST(LogIndexBuild, WithoutTimestampsEveryLineIsAMessage) {
  std::string text;
  for (int i = 0; i < 10'000; ++i) text += (i % 3 == 0 ? "ERROR nope " : "plain ") + std::to_string(i) + "\n";
  LogDoc doc(text);
  const LogIndexData data = build(doc, 1, 2);
  EXPECT_FALSE(data.format.has_value());
  EXPECT_FALSE(data.hasTimes());
  const auto counts = data.messageCounts(0, data.linesIndexed);
  EXPECT_EQ(counts[levelSlot(Level::error)], 3334);
  EXPECT_EQ(counts[levelSlot(Level::none)], 10'001 - 3334);
  expectReference(doc, data);
}

// A line of several MiB is looked at only through its window: a level word
// past it does not count, one inside does.
TEST(LogIndexBuild, HugeLinesAreReadOnlyUpToTheirWindow) {
  std::string text = "2026-01-01 00:00:00 INFO start\n2026-01-01 00:00:01 " + std::string(3 << 20, 'a') +
                     " ERROR\n2026-01-01 00:00:02 WARN " + std::string(3 << 20, 'b') + "\n";
  LogDoc doc(text);
  const LogIndexData data = build(doc, 1, 1);
  EXPECT_EQ(data.alertLines[0], (std::vector<uint32_t>{2}));
  EXPECT_TRUE(data.alertLines[1].empty());
  EXPECT_EQ(data.timedLines, 3);
}

TEST(LogIndexBuild, QueriesAgreeWithTheReference) {
  LogDoc doc(generatedLog(3, 20'000));
  const LogIndexData data = build(doc, 1, 2);
  const auto facts = referenceFacts(doc.text(), data.format, {}, 2026);
  auto slowCount = [&](int64_t from, int64_t to, Level level) {
    int64_t n = 0;
    for (int64_t l = from; l < to; ++l) n += facts[l].head && facts[l].level == level;
    return n;
  };
  std::mt19937 random(5);
  for (int round = 0; round < 200; ++round) {
    const int64_t line = random() % facts.size();
    const Level atLeast = static_cast<Level>(levelSlot(Level::warning) + random() % 4);
    std::optional<int64_t> next, previous;
    for (int64_t l = line + 1; l < static_cast<int64_t>(facts.size()) && !next; ++l) {
      if (facts[l].head && facts[l].level >= atLeast) next = l;
    }
    for (int64_t l = line - 1; l >= 0 && !previous; --l) {
      if (facts[l].head && facts[l].level >= atLeast) previous = l;
    }
    EXPECT_EQ(data.nextAlert(line, atLeast), next);
    EXPECT_EQ(data.previousAlert(line, atLeast), previous);
    const int64_t to = std::min<int64_t>(line + random() % 9000, facts.size());
    const auto counts = data.messageCounts(line, to);
    for (Level level : {Level::warning, Level::error, Level::fatal}) {
      EXPECT_EQ(counts[levelSlot(level)], slowCount(line, to, level));
    }
    EXPECT_EQ(data.blockOfLine(line), line / kLogBlockLines);
  }
  EXPECT_EQ(data.nextAlert(0, Level::info), std::nullopt);
  EXPECT_EQ(data.blockOfLine(data.linesIndexed), std::nullopt);
}

TEST(LogIndexBuild, ACancelledBuildIsIncompleteAndConsistent) {
  LogDoc doc(generatedLog(4, 20'000));
  jobs::JobToken token(1, "index");
  token.cancel();
  dispatch::WorkerPool pool(2);
  const LogIndexData data = buildLogIndex(doc.source(), {}, {.chunkLines = 1}, &pool, &token);
  EXPECT_FALSE(data.complete);
  EXPECT_LT(data.linesIndexed, 20'000);
}

}  // namespace
}  // namespace quorin::logs
