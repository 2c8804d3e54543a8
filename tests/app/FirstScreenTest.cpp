#include <gtest/gtest.h>

#include "FirstScreen.h"
#include "FirstScreenView.h"
#include "MainWindow.h"
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

TEST_F(AppFirstScreenTest, SplitsDecodedLinesWithoutTheirTerminatorsOrNamesTheOpenError) {
  const auto screen = load("alpha\nbeta\n\ngamma");
  EXPECT_EQ(screen.lines, (Lines{"alpha", "beta", "", "gamma"}));
  EXPECT_TRUE(screen.complete);
  EXPECT_EQ(load("").lines, (Lines{""}));
  EXPECT_EQ(load("one\r\ntwo\r\n").lines, (Lines{"one", "two", ""}));  // a final terminator opens a line
  EXPECT_EQ(load("one\rtwo").lines, (Lines{"one", "two"}));

  const auto utf16 = load(testing::utf16LEWithMark(u"h\u00e9\r\nw\u00f6"));
  EXPECT_EQ(utf16.lines, (Lines{"hé", "wö"}));
  EXPECT_EQ(utf16.encoding, text::DetectedEncoding::utf16LE);
  EXPECT_EQ(utf16.documentLength, 12);

  const std::string missing = (dir_.path() / "gone.log").string();
  EXPECT_EQ(loadFirstScreen(missing),
            std::unexpected("open(" + missing + ") failed: No such file or directory"));
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

QString qpath(const std::string& path) { return QString::fromStdString(path); }

TEST_F(AppFirstScreenTest, WindowShowsTheOpenedFileAndAFailedOpenKeepsIt) {
  MainWindow window;
  ASSERT_EQ(window.openFile(qpath(dir_.write("old.txt", "replaced"))), std::nullopt);
  const std::string good = dir_.write("report.csv", "id,name\r\n1,Zoë\r\n");
  ASSERT_EQ(window.openFile(qpath(good)), std::nullopt);
  EXPECT_FALSE(window.grab().isNull());  // paints the loaded lines (under the sanitizers in their builds)

  const std::string missing = (dir_.path() / "missing.log").string();
  EXPECT_EQ(window.openFile(qpath(missing)),
            qpath("open(" + missing + ") failed: No such file or directory"));
  EXPECT_EQ(window.view().lines(), (QStringList{"id,name", "1,Zoë", ""}));
  EXPECT_EQ(window.currentPath(), qpath(good));
  EXPECT_EQ(window.windowTitle(), "report.csv — Quorin");
}

}  // namespace
}  // namespace quorin::app
