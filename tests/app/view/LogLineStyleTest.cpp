#include <gtest/gtest.h>

#include "ViewTestSupport.h"
#include "app/view/LogLineStyle.h"

namespace quorin::app {
namespace {

struct Styled : testing::TestDocument {
  explicit Styled(const std::string& bytes) : TestDocument(bytes) {
    queue->runAll();
    const auto snapshot = doc->snapshot();
    auto data = std::make_shared<logs::LogIndexData>(
        logs::buildLogIndex({snapshot.text, snapshot.lines}, logs::SeverityRules(), {}));
    styler.setLog(std::move(data), logs::SeverityRules());
  }
  // The styles of the lines from `firstLine` to the end, as the view asks for them.
  std::vector<LineLogStyle> from(int64_t firstLine) {
    const TextLines lines(doc->snapshot(), {0, doc->length()}, '\n');
    std::vector<VisibleLine> rows;
    for (auto start = lines.startOfLine(firstLine); start && *start < doc->length();
         start = lines.nextLineStart(*start))
      rows.push_back({*start, lines.contentEnd(*start), lines.lineNumberOf(*start)});
    return styler.style(lines, rows);
  }
  LogLineStyler styler;
};

TEST(AppLogLineStyleTest, ContinuationLinesTakeTheirMessagesLevelEvenAtTheTop) {
  Styled log(
      "2026-03-20 12:00:00 ERROR boom\n"      // 0
      "    at Warning.handle(x)\n"            // 1: its own word is not a level
      "    at Worker.run(y)\n"                // 2
      "2026-03-20 12:00:01 [main] info ok\n"  // 3
      "    level=fatal in a body\n");         // 4
  const auto all = log.from(0);
  ASSERT_EQ(all.size(), 5U);
  EXPECT_EQ(all[0].level, logs::Level::error);
  EXPECT_TRUE(all[0].head);
  EXPECT_EQ(all[0].timestamp, (storage::ByteRange{0, 19}));
  EXPECT_EQ(all[0].levelWord, (storage::ByteRange{20, 25}));
  EXPECT_EQ(all[1].level, logs::Level::error);
  EXPECT_EQ(all[1].levelWord.length(), 0);
  EXPECT_EQ(all[3].level, logs::Level::info);
  const auto info = static_cast<int64_t>(log.text().find("info"));
  EXPECT_EQ(all[3].levelWord, (storage::ByteRange{info, info + 4}));
  EXPECT_EQ(all[4].level, logs::Level::info);

  // Scrolled so that a stack-trace line is the first row: it still belongs to the error.
  const auto scrolled = log.from(2);
  EXPECT_EQ(scrolled[0].level, logs::Level::error);
  EXPECT_FALSE(scrolled[0].head);
}

TEST(AppLogLineStyleTest, TextWithoutTimestampsIsNotStyled) {
  Styled notes("an error in prose\nWARNING: not a log either\n");
  EXPECT_FALSE(notes.styler.active());
  for (const auto& style : notes.from(0)) EXPECT_EQ(style.level, logs::Level::none);
}

}  // namespace
}  // namespace quorin::app
