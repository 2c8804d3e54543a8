#include <gtest/gtest.h>

#include <QTest>
#include <filesystem>

#include "app/DocumentTab.h"
#include "app/MainWindow.h"
#include "app/QtMainQueue.h"
#include "app/UnsavedRecovery.h"
#include "app/view/TextView.h"
#include "support/TempDir.h"

namespace quorin::app {
namespace {

namespace fs = std::filesystem;

QtMainQueue& lastingQueue() {
  static auto* queue = new QtMainQueue;
  return *queue;
}

std::string textOf(const DocumentTab& tab) {
  const auto snap = tab.document().snapshot();
  return snap.text.text({0, snap.text.totalLength()});
}

// Edits typed into a tab, its journal copied as a crash would leave it (the
// copy is nobody's: its lock is free), the tab closed without saving.
fs::path editAndLeaveJournal(MainWindow& window, const fs::path& file, std::string& edited) {
  EXPECT_EQ(window.openFileWithMode(QString::fromStdString(file.string()), {}), std::nullopt);
  DocumentTab* tab = window.currentTab();
  tab->view()->setCaret(0);
  QTest::keyClicks(tab->view(), QStringLiteral("typed "));
  tab->view()->select(6, 11);
  QTest::keyClicks(tab->view(), QStringLiteral("BETA"));
  edited = textOf(*tab);
  const fs::path live = tab->recoveryJournalPath().toStdString();
  EXPECT_TRUE(fs::exists(live));
  const fs::path left = live.parent_path() / ("unsaved-crashed" + std::to_string(::getpid()) + ".qrj");
  fs::copy_file(live, left);
  tab->document().discardHistory();  // the close below asks nothing
  window.closeTab(window.tabs()->indexOf(tab));
  EXPECT_FALSE(fs::exists(live));  // closing deletes its own journal
  return left;
}

TEST(AppUnsavedRecoveryTest, RestoresTheEditsAsOneUndoStepAndRefusesAChangedFile) {
  testing::TempDir dir;
  const auto file = dir.write("app.log", "alpha\nbeta\ngamma\n");
  MainWindow window(lastingQueue());
  std::string edited;
  const fs::path left = editAndLeaveJournal(window, file, edited);
  ASSERT_NE(edited, "alpha\nbeta\ngamma\n");

  std::vector<persistence::RecoveryPrompt> asked;
  EXPECT_EQ(examineUnsavedJournals(&window,
                                   [&](const persistence::RecoveryPrompt& prompt) {
                                     asked.push_back(prompt);
                                     return QStringLiteral("Restore");
                                   }),
            1);
  ASSERT_EQ(asked.size(), 1u);
  EXPECT_EQ(asked[0].title, "Quorin quit before “app.log” was saved.");
  EXPECT_TRUE(asked[0].text.starts_with("Restore its ")) << asked[0].text;
  DocumentTab* tab = window.currentTab();
  EXPECT_EQ(textOf(*tab), edited);
  EXPECT_TRUE(tab->document().isModified());
  EXPECT_FALSE(fs::exists(left));
  tab->view()->undo();
  EXPECT_EQ(textOf(*tab), "alpha\nbeta\ngamma\n");
  tab->document().discardHistory();
  window.closeTab(0);

  // The file changed since: nothing is applied; Keep leaves the journal for the command line.
  const fs::path again = editAndLeaveJournal(window, file, edited);
  dir.write("app.log", "rewritten by someone else\n");
  asked.clear();
  examineUnsavedJournals(&window, [&](const persistence::RecoveryPrompt& prompt) {
    asked.push_back(prompt);
    return QStringLiteral("Keep");
  });
  ASSERT_EQ(asked.size(), 1u);
  EXPECT_TRUE(asked[0].title.starts_with("“app.log” changed after Quorin quit with ")) << asked[0].title;
  EXPECT_EQ(window.tabCount(), 0);
  EXPECT_TRUE(fs::exists(again));
  fs::remove(again);
}

}  // namespace
}  // namespace quorin::app
