#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "logs/Severity.h"
#include "logs/SeverityRules.h"

using namespace quorin::logs;

namespace {

struct Case {
  std::string text;
  Level level;
};

void expectLevels(const std::vector<Case>& cases) {
  for (const auto& c : cases) EXPECT_EQ(detectLevel(c.text), c.level) << '"' << c.text << '"';
}

void expectLineLevels(const std::vector<Case>& cases) {
  for (const auto& c : cases) EXPECT_EQ(detectLineLevel(c.text, 0), c.level) << '"' << c.text << '"';
}

}  // namespace

TEST(Severity, WordsInTheirUsualSpellings) {
  expectLevels({
      {"ERROR something broke", Level::error},
      {"error: x", Level::error},
      {"Error x", Level::error},
      {"[Err] x", Level::error},
      {"ERR x", Level::error},
      {"WARN disk", Level::warning},
      {"WARNING disk", Level::warning},
      {"Warning: disk", Level::warning},
      {"FATAL out of memory", Level::fatal},
      {"CRIT x", Level::critical},
      {"critical: x", Level::critical},
      {"SEVERE x", Level::error},
      {"ALERT x", Level::fatal},
      {"emerg x", Level::fatal},
      {"NOTICE x", Level::notice},
      {" INFO  main - started", Level::info},
      {"[debug] x", Level::debug},
      {"TRACE x", Level::trace},
      {"Verbose x", Level::trace},
      {"main.cpp:12 <error> x", Level::error},
      {"no error", Level::error},
      {"thread-1 info_x error", Level::error},
  });
}

TEST(Severity, LookalikesAreNotLevels) {
  expectLevels({
      {"Errors: 0", Level::none},
      {"terror struck", Level::none},
      {"eRRoR x", Level::none},
      {"error_count=3", Level::none},
      {"infos", Level::none},
      {"warned", Level::none},
      {"ERROR2 x", Level::none},
      {"", Level::none},
      {"level=verbosely", Level::none},
  });
}

TEST(Severity, KeysWinOverWordsAndTheLeftmostWordWins) {
  expectLevels({
      {"level=error", Level::error},
      {"ts=1 lvl=warn msg=x", Level::warning},
      {"severity=\"Critical\" x", Level::critical},
      {"level='info'", Level::info},
      {"{\"level\":\"error\",\"msg\":\"x\"}", Level::error},
      {"{\"severity\" : \"WARNING\"}", Level::warning},
      {"{\"lvl\": \"debug\"}", Level::debug},
      {"{\"level\":50,\"msg\":\"x\"}", Level::error},
      {"{\"level\":30}", Level::info},
      {"INFO request failed with error", Level::info},
      {"request failed with error, retry INFO", Level::error},
      {"INFO handler says level=error", Level::error},
      {"Battery level: low, WARN", Level::warning},
      {"level=5 ERROR", Level::error},
  });
}

TEST(Severity, FormatMarkersAtTheLineStart) {
  expectLineLevels({
      {"<0>kernel panic", Level::fatal},
      {"<1>x", Level::fatal},
      {"<2>x", Level::critical},
      {"<3>x", Level::error},
      {"<12>x", Level::warning},
      {"<13>x INFO", Level::notice},
      {"<30>x", Level::info},
      {"<191>x", Level::debug},
      {"<192>x ERROR", Level::error},
      {"<34>1 2026-03-20T12:00:00Z host app - - - ok", Level::critical},
      {"<>x", Level::none},
      {"E1123 10:00:00.123456  1234 main.cc:10] boom", Level::error},
      {"W1123 10:00:00.123456  1234 main.cc:10] hm", Level::warning},
      {"I0101 00:00:00.000000 1 a.cc:1] level=error", Level::info},
      {"F1231 10:00:00.1 x", Level::fatal},
      {"E1323 10:00:00 x", Level::none},
      {"E12345 x", Level::none},
      {"X1123 x", Level::none},
      {"E/ActivityManager: boom", Level::error},
      {"W/Tag( 123): x", Level::warning},
      {"V/Tag: x", Level::trace},
      {"A/libc: abort", Level::fatal},
      {"E/ x", Level::none},
      {" E/Tag: x", Level::none},
  });
  EXPECT_EQ(syslogLevel(-1), Level::none);
  EXPECT_EQ(syslogLevel(11), Level::error);
}

TEST(Severity, TheTimestampIsSkippedAndOnlyTheWindowIsRead) {
  const std::string line = "2026-03-20 12:00:00,123 ERROR x";
  EXPECT_EQ(detectLineLevel(line, 23), Level::error);
  EXPECT_EQ(detectLineLevel(line, 1000), Level::none);
  EXPECT_EQ(detectLineLevel("INFO 2026 x", 5), Level::none);

  const std::string pad(kLevelWindowBytes - 6, '.');
  EXPECT_EQ(detectLevel(pad + " ERROR"), Level::error);
  EXPECT_EQ(detectLevel(pad + " ERRORS"), Level::none);  // cut at the window, the word goes on
  EXPECT_EQ(detectLevel(pad + "  ERROR"), Level::none);
  EXPECT_EQ(detectLevel(pad + " level=error"), Level::none);
  EXPECT_EQ(detectLevel(std::string(1 << 20, 'x') + " ERROR"), Level::none);

  const std::string binary(
      "\0\xff\x80"
      "ERROR\0",
      9);
  EXPECT_EQ(detectLevel(binary), Level::error);
  EXPECT_EQ(detectLineLevel(std::string("\0<3>", 4), 0), Level::none);
}

TEST(SeverityRules, UserRulesComeFirstInOrder) {
  SeverityRules rules;
  EXPECT_EQ(rules.detect("x ERROR y", 0), Level::error);
  ASSERT_TRUE(rules.setUserRules({{"Payment Declined", false, Level::critical},
                                  {"^\\S+ E ", true, Level::error},
                                  {"errors=0", false, Level::none},
                                  {"é+t", true, Level::notice},
                                  {"", false, Level::fatal}}));
  EXPECT_EQ(rules.detect("INFO payment DECLINED for 12", 0), Level::critical);
  const std::string far = "INFO " + std::string(40, 'p') + " payment declinex " + std::string(40, 'p');
  EXPECT_EQ(rules.detect(far, 0), Level::info);
  EXPECT_EQ(rules.detect(far + " PAYMENT Declined", 0), Level::critical);
  EXPECT_EQ(rules.detect(std::string(kUserRuleWindowBytes, 'x') + "payment declined", 0), Level::none);
  EXPECT_EQ(rules.detect("12:00:00 E worker stopped", 8), Level::error);
  EXPECT_EQ(rules.detect("ERROR summary errors=0", 0), Level::none);
  EXPECT_EQ(rules.detect("\xff caf\xc3\xa9t WARN", 0), Level::notice);
  EXPECT_EQ(rules.detect("12:00:00 ok WARN", 8), Level::warning);
  EXPECT_EQ(rules.detect("<3>ok", 0), Level::error);
}

TEST(SeverityRules, GenerationCopiesAndRefusedRegex) {
  SeverityRules rules;
  const uint64_t start = rules.generation();
  ASSERT_TRUE(rules.setUserRules({{"boom", false, Level::fatal}}));
  EXPECT_EQ(rules.generation(), start + 1);
  const SeverityRules snapshot = rules;
  ASSERT_TRUE(rules.setUserRules({}));
  EXPECT_EQ(rules.generation(), start + 2);
  EXPECT_EQ(snapshot.detect("boom", 0), Level::fatal);
  EXPECT_EQ(rules.detect("boom", 0), Level::none);

  const auto refused = rules.setUserRules({{"ok", false, Level::info}, {"a(b", true, Level::error}});
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().rule, 1U);
  EXPECT_EQ(refused.error().describe(), "Invalid regex: missing closing parenthesis");
  EXPECT_EQ(rules.generation(), start + 2);
  EXPECT_TRUE(rules.userRules().empty());
}
