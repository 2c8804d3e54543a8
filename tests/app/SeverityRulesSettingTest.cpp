#include <gtest/gtest.h>

#include <QSettings>

#include "app/SeverityRulesSetting.h"

namespace quorin::app {
namespace {

TEST(AppSeverityRulesSettingTest, TheStoredJsonBecomesRulesOrSaysWhyNot) {
  const auto rules = parseSeverityRules(
      R"([{"text": "OutOfMemory", "level": "fatal"}, {"regex": "^\\s+at ", "level": "NONE"}])");
  ASSERT_TRUE(rules.has_value());
  EXPECT_EQ(*rules, (std::vector<logs::SeverityRule>{{"OutOfMemory", false, logs::Level::fatal},
                                                     {"^\\s+at ", true, logs::Level::none}}));
  EXPECT_EQ(parseSeverityRules("{\"text\": \"x\"}").error().describe(),
            R"(Severity rules: the setting is not a JSON array of {"text" or "regex", "level"})");
  EXPECT_EQ(parseSeverityRules(R"([{"text": "a", "level": "error"}, {"text": "b", "level": "loud"}])")
                .error()
                .describe(),
            R"(Severity rule 2 needs a "text" or "regex" and a level from trace to fatal, or none)");

  // A rule that does not compile leaves the defaults in force, and says so.
  QSettings().setValue(kSeverityRulesKey, R"([{"regex": "(unclosed", "level": "error"}])");
  QString problem;
  const logs::SeverityRules loaded = loadSeverityRules(&problem);
  EXPECT_TRUE(loaded.userRules().empty());
  EXPECT_TRUE(problem.startsWith("Severity rule 1: Invalid regex: ")) << problem.toStdString();
  QSettings().setValue(kSeverityRulesKey, R"([{"text": "disk full", "level": "critical"}])");
  EXPECT_EQ(loadSeverityRules().detect("2026-03-20 12:00:00 INFO Disk full on /var", 19),
            logs::Level::critical);
  QSettings().remove(kSeverityRulesKey);
}

}  // namespace
}  // namespace quorin::app
