#include <gtest/gtest.h>

#include <QTableView>
#include <random>

#include "app/DocumentTab.h"
#include "app/TabTestSupport.h"
#include "app/csv/CsvGridView.h"
#include "app/csv/CsvTableModel.h"
#include "app/goto/GoToField.h"
#include "app/view/TextView.h"
#include "base/ByteCount.h"
#include "dispatch/ManualMainQueue.h"
#include "support/ManualExecutor.h"
#include "support/TempDir.h"

namespace quorin::app {
namespace {

struct Tab : TabHarness {
  explicit Tab(std::string_view text, const std::string& name = "doc.txt") { open(text, name); }
};

TEST(AppDocumentTabTest, ABinaryFileSaysSoAndTheSizeIsTheFilesOwn) {
  std::mt19937 random(7);
  std::string bytes(64 * 1024, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random() & 0xFF);
  Tab binary(bytes, "blob.bin");
  EXPECT_TRUE(binary.tab->openNotice().startsWith("“blob.bin” looks like a binary file; it is shown as "));
  // Read as a single-byte encoding, its text is a larger UTF-8 copy; the status bar shows the file.
  EXPECT_NE(binary.document->length(), 64 * 1024);
  EXPECT_EQ(binary.tab->sizeText(), QString::fromStdString(base::formatByteCount(64 * 1024)));

  Tab text("plain\ttext\r\nwith an escape \x1b[1m here\n");
  EXPECT_TRUE(text.tab->openNotice().isEmpty());
}

TEST(AppDocumentTabTest, TheLineCountFollowsAppendedLinesAndTheTierIsATooltip) {
  Tab followed("one\ntwo\n");
  followed.main.runPending();
  const QString before = followed.tab->indexText();
  EXPECT_FALSE(before.contains("tier"));
  EXPECT_TRUE(followed.tab->indexToolTip().startsWith("Line starts are kept in memory"));
  // What a followed file's new lines do (no progress report follows them).
  ASSERT_TRUE(followed.document->acceptFollowedBytes("three\nfour\nfive\n"));
  EXPECT_NE(followed.tab->indexText(), before);
  EXPECT_EQ(followed.tab->indexText(),
            QStringLiteral("%1 lines").arg(followed.document->snapshot().lines.lineCount()));
}

TEST(AppDocumentTabTest, TheTableViewShowsWhereFindAndGoToLand) {
  std::string csv = "id,name,note\n";
  for (int i = 1; i <= 40; ++i) csv += std::to_string(i) + ",name" + std::to_string(i) + ",n\n";
  Tab table(csv, "t.csv");
  ASSERT_TRUE(table.tab->setTableView(true));
  CsvGridView* grid = table.tab->grid();
  ASSERT_TRUE(table.pumpUntil([&] { return !grid->model().isBuilding(); }));
  grid->model().sync();

  // A find hit selects its range in the text; the grid selects the cell.
  const auto hit = static_cast<int64_t>(csv.find("name17"));
  table.tab->view()->select(hit, hit + 6);
  EXPECT_EQ(grid->table().currentIndex(), grid->model().index(16, 1));

  table.tab->goToField()->setText("r30");
  table.tab->goToField()->go();
  EXPECT_EQ(grid->table().currentIndex().row(), 29);
  EXPECT_EQ(grid->table().currentIndex().column(), 0);
}

}  // namespace
}  // namespace quorin::app
