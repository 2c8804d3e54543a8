#include <gtest/gtest.h>

#include "FirstScreenView.h"
#include "MainWindow.h"
#include "support/TempDir.h"

namespace quorin::app {
namespace {

QString qpath(const std::string& path) { return QString::fromStdString(path); }

TEST(AppMainWindowTest, OpeningShowsTheLinesAndNamesTheFile) {
  testing::TempDir dir;
  MainWindow window;
  ASSERT_EQ(window.openFile(qpath(dir.write("report.csv", "id,name\r\n1,Zoë\r\n"))), std::nullopt);
  EXPECT_EQ(window.view().lines(), (QStringList{"id,name", "1,Zoë", ""}));
  EXPECT_EQ(window.windowTitle(), "report.csv — Quorin");
  // Painting runs over the loaded lines (and under the sanitizers in their builds).
  EXPECT_FALSE(window.grab().isNull());

  // Opening another file replaces the first.
  ASSERT_EQ(window.openFile(qpath(dir.write("b.txt", "only"))), std::nullopt);
  EXPECT_EQ(window.view().lines(), QStringList{"only"});
}

TEST(AppMainWindowTest, AFailedOpenKeepsTheCurrentDocument) {
  testing::TempDir dir;
  MainWindow window;
  const std::string good = dir.write("good.log", "kept\n");
  ASSERT_EQ(window.openFile(qpath(good)), std::nullopt);

  const std::string missing = (dir.path() / "missing.log").string();
  EXPECT_EQ(window.openFile(qpath(missing)),
            QString::fromStdString("open(" + missing + ") failed: No such file or directory"));
  EXPECT_EQ(window.view().lines(), (QStringList{"kept", ""}));
  EXPECT_EQ(window.currentPath(), qpath(good));
  EXPECT_EQ(window.windowTitle(), "good.log — Quorin");
}

TEST(AppFirstScreenViewTest, TabsAndControlCharactersBecomeVisible) {
  EXPECT_EQ(FirstScreenView::displayText("a\tbc\td"), "a   bc  d");
  EXPECT_EQ(FirstScreenView::displayText(QString::fromUtf8("x\0y\x1b\x7f", 5)), "x\u2400y\u241b\u2421");

  const QString longLine(10000, 'x');
  const QString shown = FirstScreenView::displayText(longLine);
  EXPECT_LT(shown.size(), longLine.size());
  EXPECT_TRUE(shown.endsWith(QChar(0x2026)));
}

}  // namespace
}  // namespace quorin::app
