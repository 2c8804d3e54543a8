#include <gtest/gtest.h>

#include "FirstScreen.h"
#include "support/TempDir.h"

namespace quorin::app {
namespace {

using Lines = std::vector<std::string>;

class AppFirstScreenTest : public ::testing::Test {
 protected:
  FirstScreen load(std::string_view bytes, int64_t maxBytes = kFirstScreenBytes) {
    auto screen = loadFirstScreen(dir_.write("file", bytes), maxBytes);
    EXPECT_TRUE(screen.has_value()) << screen.error();
    return screen.value_or(FirstScreen{});
  }

  testing::TempDir dir_;
};

TEST_F(AppFirstScreenTest, SplitsLinesAndReportsTheFile) {
  const auto screen = load("alpha\nbeta\n\ngamma");
  EXPECT_EQ(screen.lines, (Lines{"alpha", "beta", "", "gamma"}));
  EXPECT_EQ(screen.fileLength, 17);
  EXPECT_EQ(screen.encoding, text::DetectedEncoding::utf8);
  EXPECT_EQ(screen.lineEnding, text::LineEnding::lf);
  EXPECT_TRUE(screen.complete);

  EXPECT_EQ(load("one\n").lines, (Lines{"one", ""}));  // a final terminator opens an empty line
  EXPECT_EQ(load("").lines, (Lines{""}));
}

TEST_F(AppFirstScreenTest, LinesAreDecodedWithoutTheirTerminators) {
  EXPECT_EQ(load("one\r\ntwo\r\n").lines, (Lines{"one", "two", ""}));
  EXPECT_EQ(load("one\rtwo").lines, (Lines{"one", "two"}));

  const auto utf16 = load(testing::utf16LEWithMark(u"h\u00e9\nw\u00f6"));
  EXPECT_EQ(utf16.lines, (Lines{"hé", "wö"}));
  EXPECT_EQ(utf16.encoding, text::DetectedEncoding::utf16LE);
  EXPECT_EQ(utf16.documentLength, 10);
}

TEST_F(AppFirstScreenTest, ALongDocumentDropsItsCutLastLine) {
  const auto cut = load("aaaa\nbbbb\ncccc\n", 12);
  EXPECT_EQ(cut.lines, (Lines{"aaaa", "bbbb"}));
  EXPECT_FALSE(cut.complete);

  // A single line has nothing to drop back to, so it is shown cut.
  EXPECT_EQ(load("abcdefgh", 4).lines, (Lines{"abcd"}));

  // An odd limit must not split a UTF-16 code unit: "ab\ncd" read up to byte 5 of 10.
  EXPECT_EQ(load(testing::utf16LEWithMark(u"ab\ncd"), 5).lines, (Lines{"ab"}));
}

TEST_F(AppFirstScreenTest, UnopenableFileGivesTheUserFacingError) {
  const std::string missing = (dir_.path() / "gone.log").string();
  const auto screen = loadFirstScreen(missing);
  ASSERT_FALSE(screen.has_value());
  EXPECT_EQ(screen.error(), "open(" + missing + ") failed: No such file or directory");
}

TEST(AppHumanReadableSizeTest, PicksTheLargestUnitBelow1024) {
  EXPECT_EQ(humanReadableSize(0), "0 bytes");
  EXPECT_EQ(humanReadableSize(1), "1 byte");
  EXPECT_EQ(humanReadableSize(1023), "1023 bytes");
  EXPECT_EQ(humanReadableSize(1024), "1.0 KiB");
  EXPECT_EQ(humanReadableSize(1536), "1.5 KiB");
  EXPECT_EQ(humanReadableSize(1024 * 1024 - 1), "1.0 MiB");
  EXPECT_EQ(humanReadableSize(int64_t{5} << 30), "5.0 GiB");
}

}  // namespace
}  // namespace quorin::app
