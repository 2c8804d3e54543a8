#include <gtest/gtest.h>

#include <memory>

#include "ViewTestSupport.h"
#include "app/view/ScrollMapping.h"
#include "app/view/TextLines.h"

namespace quorin::app {
namespace {

// A document and its geometry.
struct OpenText : testing::TestDocument {
  using TestDocument::TestDocument;
  OpenText(const std::string& bytes, int64_t indexLines)
      : TestDocument(bytes, storage::LargeFileOpenMode::wholeFileVirtual, indexLines) {}
  TextLines lines() const { return TextLines(doc->snapshot(), doc->editableRange(), '\n'); }
};

TEST(AppTextLinesTest, CharacterStepsTreatCrLfAndMultiByteAndInvalidBytesAsOneStep) {
  // "a\r\n" "é" (2 bytes) "€" (3 bytes) an invalid byte, "😀" (4 bytes).
  const std::string text = "a\r\n\xC3\xA9\xE2\x82\xAC\xFF\xF0\x9F\x98\x80";
  OpenText open(text);
  const TextLines lines = open.lines();
  std::vector<int64_t> forward{0};
  while (forward.back() < static_cast<int64_t>(text.size()))
    forward.push_back(lines.nextCharacter(forward.back()));
  EXPECT_EQ(forward, (std::vector<int64_t>{0, 1, 3, 5, 8, 9, 13}));
  std::vector<int64_t> backward{static_cast<int64_t>(text.size())};
  while (backward.back() > 0) backward.push_back(lines.previousCharacter(backward.back()));
  EXPECT_EQ(backward, (std::vector<int64_t>{13, 9, 8, 5, 3, 1, 0}));
}

TEST(AppTextLinesTest, LineGeometryIsTheSameFromTheIndexAndFromBoundedScans) {
  std::string text;
  for (int i = 0; i < 50; ++i) text += "line " + std::to_string(i) + (i % 3 == 0 ? "\r\n" : "\n");
  OpenText indexed(text);
  OpenText scanned(text, 2);  // two lines known; the rest by scanning
  ASSERT_FALSE(scanned.doc->snapshot().lines.isComplete);
  for (const TextLines& lines : {indexed.lines(), scanned.lines()}) {
    int64_t start = 0;
    int64_t count = 0;
    for (std::optional<int64_t> at = 0; at; at = lines.nextLineStart(*at)) {
      start = *at;
      ++count;
      EXPECT_TRUE(start == 0 || text[static_cast<size_t>(start - 1)] == '\n');
      EXPECT_EQ(lines.lineStartOf(start + 2), start);
      const int64_t end = lines.contentEnd(start);
      EXPECT_NE(text[static_cast<size_t>(std::max<int64_t>(0, end - 1))], '\r')
          << "CR belongs to the line break";
      if (const auto previous = lines.previousLineStart(start)) {
        EXPECT_EQ(lines.nextLineStart(*previous), start);
      }
    }
    EXPECT_EQ(count, 51);  // the empty line after the last break counts
    EXPECT_EQ(start, static_cast<int64_t>(text.size()));
  }
  EXPECT_EQ(indexed.lines().lineNumberOf(static_cast<int64_t>(text.size()) - 3), 49);
  EXPECT_EQ(scanned.lines().lineNumberOf(static_cast<int64_t>(text.size()) - 3), std::nullopt);
}

TEST(AppTextLinesTest, WordStepsStopAtWordEdgesAndLineBreaks) {
  OpenText open("foo_bar, baz.qux\nnext");
  const TextLines lines = open.lines();
  EXPECT_EQ(lines.nextWordEnd(0), 7);    // foo_bar
  EXPECT_EQ(lines.nextWordEnd(7), 8);    // ","
  EXPECT_EQ(lines.nextWordEnd(8), 12);   // " baz"
  EXPECT_EQ(lines.nextWordEnd(16), 17);  // the line break alone
  EXPECT_EQ(lines.previousWordStart(12), 9);
  EXPECT_EQ(lines.previousWordStart(17), 16);
  EXPECT_EQ(lines.wordAt(10), (storage::ByteRange{9, 12}));
}

TEST(AppTextLinesTest, RowLayoutExpandsTabsShowsControlsAndWidensWideCharacters) {
  OpenText open(
      "\tab\x01\xE4\xB8\xAD"
      "c\xFF");  // tab, a, b, ^A, 中, c, invalid
  const auto& text = open.doc->snapshot().text;
  const RowLayout row = layoutRow(text, 0, text.totalLength(), 0, 100);
  EXPECT_EQ(row.display, QStringLiteral("    ab\u2401\u4E2Dc\uFFFD"));
  EXPECT_EQ(row.cellAt, (std::vector<int64_t>{0, 4, 5, 6, 7, 9, 10, 11}));
  EXPECT_EQ(row.cellOf(6), 7);  // 中 starts at byte 4… its cell is 7
  EXPECT_EQ(row.offsetAtCell(7.4), 4);
  EXPECT_EQ(row.offsetAtCell(8.6), 7);  // past the middle of 中: after it

  const RowLayout clipped = layoutRow(text, 0, text.totalLength(), 5, 2);
  EXPECT_EQ(clipped.firstCell, 5);
  EXPECT_EQ(clipped.display, QStringLiteral("b\u2401"));
}

TEST(AppTextLinesTest, AHugeLineIsLaidOutOnlyWhereItIsVisible) {
  std::string line(3 * kExactLayoutBytes, 'x');
  line[2 * kExactLayoutBytes] = 'Y';
  OpenText open(line + "\n");
  const auto& text = open.doc->snapshot().text;
  const RowLayout row = layoutRow(text, 0, static_cast<int64_t>(line.size()), 2 * kExactLayoutBytes, 10);
  EXPECT_EQ(row.firstCell, 2 * kExactLayoutBytes);
  EXPECT_EQ(row.display.left(1), QStringLiteral("Y"));
  EXPECT_LE(row.display.size(), 12);
}

TEST(AppScrollMappingTest, BillionsOfLinesMapOntoTheScrollBarAndBack) {
  const ScrollMapping small(1000, 40);
  EXPECT_EQ(small.maximum(), 960);  // the last 40 lines fill the view
  EXPECT_EQ(small.lineForValue(small.valueForLine(500)), 500);

  const ScrollMapping huge(int64_t{5} << 32, 40);  // 21 billion lines
  EXPECT_EQ(huge.maximum(), ScrollMapping::kMaxValue);
  EXPECT_EQ(huge.lineForValue(huge.maximum()), huge.maxTopLine());
  const int64_t line = int64_t{3} << 32;
  EXPECT_LE(std::abs(huge.lineForValue(huge.valueForLine(line)) - line), 21);  // within one step
}

}  // namespace
}  // namespace quorin::app
