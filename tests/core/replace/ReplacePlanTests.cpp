#include <gtest/gtest.h>

#include <string>

#include "ReplaceTestSupport.h"

namespace quorin::replace {
namespace {

std::string replacedAll(const std::string& text, std::string_view find, std::string_view by) {
  std::string out;
  size_t from = 0;
  for (size_t at = text.find(find); at != std::string::npos; at = text.find(find, from)) {
    out.append(text, from, at - from);
    out += by;
    from = at + find.size();
  }
  return out + text.substr(from);
}

TEST(ReplacePlan, TemplatesReadGroupsOnEveryKindOfLine) {
  // CR LF lines, non-ASCII text, and the last line without a line break.
  ReplaceDoc d("took 12 ms\r\nété 7 ms\r\n3 ms");
  const ReplacePlan plan = d.replaceAll({.query = "(\\d+) (?<unit>ms)$", .regex = true}, "$1${unit}");
  ASSERT_FALSE(plan.error);
  EXPECT_EQ(plan.replacements, 3);
  EXPECT_FALSE(plan.keepsLength);
  ASSERT_TRUE(d.apply(plan));
  EXPECT_EQ(d.text(), "took 12ms\r\nété 7ms\r\n3ms");

  EXPECT_EQ(d.replaceAll({.query = "(a", .regex = true}, "x").error->describe(),
            "Invalid regex: missing closing parenthesis");
  EXPECT_EQ(d.replaceAll({.query = "(a)", .regex = true}, "${x}").error->describe(),
            "Group \"x\" does not exist: the pattern has no group of that name");
}

TEST(ReplacePlan, ACancelledPlanChangesNothing) {
  ReplaceDoc d("a a a\n");
  search::SearchCancellation cancelled;
  cancelled.cancel();
  const auto prepared = prepareReplacement({.query = "a"}, "b");
  const ReplacePlan all = planReplaceAll(*prepared, d.doc().snapshot(), search::SearchEngine(), cancelled);
  EXPECT_TRUE(all.cancelled);
  EXPECT_TRUE(all.sites.empty());
  const auto batch = Batch::compile({{.find = "a", .replace = "b"}}, BatchMode::simultaneous);
  const ReplacePlan some = planBatch(*batch, d.doc().snapshot(), cancelled);
  EXPECT_TRUE(some.cancelled);
  EXPECT_TRUE(some.sites.empty());
}

// Many sites become a bounded number of pieces; undo gives back every byte and redo the result.
TEST(ReplacePlan, ReplaceAllOfManySitesMergesThemAndUndoRestoresTheBytes) {
  std::string text;
  for (int i = 0; i < 40'000; ++i) text += "id=" + std::to_string(i) + " INFO x INFO\n";
  const std::string expected = replacedAll(text, "INFO", "WARNING");
  ReplaceDoc d(text);
  // The threshold lowered so that a test-sized text goes past it.
  const ReplacePlan plan = d.replaceAll({.query = "INFO"}, "WARNING", {.mergeAboveSites = 50'000});
  EXPECT_EQ(plan.replacements, 80'000);
  EXPECT_TRUE(plan.merged);
  const auto bound = static_cast<size_t>(2 * (static_cast<int64_t>(text.size()) / kMergedChunkBytes + 2));
  EXPECT_LE(plan.sites.size(), bound);
  ASSERT_TRUE(d.apply(plan));
  EXPECT_LE(d.doc().pieceCount(), bound + 1);
  EXPECT_EQ(d.text(), expected);
  ASSERT_TRUE(d.doc().undo());
  EXPECT_EQ(d.text(), text);
  ASSERT_TRUE(d.doc().redo());
  EXPECT_EQ(d.text(), expected);

  // Below the threshold sites stay exact; same-length replacements keep the length when merged.
  const ReplacePlan exact = d.replaceAll({.query = "id=1 "}, "ID=1 ");
  EXPECT_FALSE(exact.merged);
  const ReplacePlan same =
      d.replaceAll({.query = "WARNING", .regex = true}, "\\L$0", {.mergeAboveSites = 10});
  EXPECT_TRUE(same.merged);
  EXPECT_TRUE(same.keepsLength);
  ASSERT_TRUE(d.apply(same));
  EXPECT_EQ(d.text(), replacedAll(expected, "WARNING", "warning"));
  ASSERT_TRUE(d.doc().undo());
  EXPECT_EQ(d.text(), expected);
}

}  // namespace
}  // namespace quorin::replace
