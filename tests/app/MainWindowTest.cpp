#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QMessageBox>
#include <QSettings>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTest>
#include <QTimer>

#include "app/DocumentTab.h"
#include "app/LargeFileDialog.h"
#include "app/MainWindow.h"
#include "app/QtMainQueue.h"
#include "app/find/PanelTestSupport.h"
#include "app/view/TextView.h"
#include "support/TempDir.h"

namespace quorin::app {
namespace {

using testing::readFile;

// Rejects the large-file dialog when it shows; counts how often it did.
struct LargeFileDialogWatch {
  LargeFileDialogWatch() {
    timer.setInterval(20);
    QObject::connect(&timer, &QTimer::timeout, [this] {
      if (auto* dialog = qobject_cast<LargeFileController*>(QApplication::activeModalWidget())) {
        ++shown;
        dialog->reject();
      }
    });
    timer.start();
  }
  QTimer timer;
  int shown = 0;
};

bool saveAndWait(DocumentTab* tab) {
  QSignalSpy finished(tab, &DocumentTab::saveFinished);
  tab->save();
  return (!finished.isEmpty() || finished.wait(10'000)) && finished.first().first().toBool();
}

TEST(AppMainWindowTest, OpenTypeSaveWritesTheBytesAndAFileOpensOnlyOnce) {
  testing::TempDir dir;
  const auto path = dir.write("smoke.log", "alpha\nbravo\n");
  QtMainQueue queue;
  auto* window = new MainWindow(queue);
  ASSERT_EQ(window->openFileWithMode(QString::fromStdString(path.string()), {}), std::nullopt);
  ASSERT_EQ(window->openFile(QString::fromStdString(path.string())), std::nullopt);
  EXPECT_EQ(window->tabCount(), 1);
  DocumentTab* tab = window->currentTab();

  // Same length: patched in place.
  tab->view()->select(0, 5);
  QTest::keyClicks(tab->view(), QStringLiteral("A"));
  tab->view()->undo();
  tab->view()->select(6, 7);
  QTest::keyClicks(tab->view(), QStringLiteral("B"));
  EXPECT_EQ(tab->title(), QStringLiteral("smoke.log •"));
  ASSERT_TRUE(saveAndWait(tab));
  EXPECT_EQ(readFile(path), "alpha\nBravo\n");
  EXPECT_EQ(tab->title(), QStringLiteral("smoke.log"));

  // Longer: rewritten.
  tab->view()->setCaret(tab->document().length());
  QTest::keyClicks(tab->view(), QStringLiteral("charlie"));
  ASSERT_TRUE(saveAndWait(tab));
  EXPECT_EQ(readFile(path), "alpha\nBravo\ncharlie");
  window->close();
}

TEST(AppMainWindowTest, AFileThatCannotBeOpenedSaysWhyAndOpensNothing) {
  testing::TempDir dir;
  QtMainQueue queue;
  MainWindow window(queue);
  const auto error =
      window.openFileWithMode(QString::fromStdString((dir.path() / "missing.log").string()), {});
  ASSERT_TRUE(error.has_value());
  EXPECT_FALSE(error->isEmpty());
  EXPECT_EQ(window.openFileWithMode(QString::fromStdString(dir.path().string()), {}).has_value(), true);
  EXPECT_EQ(window.tabCount(), 0);
}

TEST(AppMainWindowTest, ARestoredFileThatGrewPastTheThresholdAsksForItsModeAgain) {
  QSettings().setValue("QuorinFastOpenThresholdBytes", 100);
  testing::TempDir dir;
  const QString grew = QString::fromStdString(dir.write("grew.log", std::string(300, 'g')).string());
  const QString chosen = QString::fromStdString(dir.write("chosen.log", std::string(300, 'c')).string());
  const auto entry = [](const QString& path, qlonglong size) {
    return QVariantMap{{"path", path},
                       {"mode", static_cast<int>(storage::LargeFileOpenMode::wholeFileVirtual)},
                       {"caret", 0},
                       {"top", 0},
                       {"size", size}};
  };
  // Small when the session was saved, so whole-file mode was never chosen for it; the other was
  // chosen for a file already large.
  QSettings().setValue(MainWindow::kSessionKey, QVariantList{entry(grew, 6), entry(chosen, 250)});
  MainWindow window(lastingQueue());
  LargeFileDialogWatch watch;
  window.restoreSession();
  EXPECT_EQ(watch.shown, 1);
  ASSERT_EQ(window.tabCount(), 1);
  EXPECT_EQ(window.tabAt(0)->path(), chosen);
  window.closeTab(0);
  QSettings().remove("QuorinFastOpenThresholdBytes");
  QSettings().remove(MainWindow::kSessionKey);
}

TEST(AppMainWindowTest, ThePatchInPlaceToggleIsStoredAndAppliedToOpenDocuments) {
  QSettings().remove(MainWindow::kInPlaceSaveKey);
  testing::TempDir dir;
  const auto path = dir.write("patch.log", "alpha\nbravo\n");
  MainWindow window(lastingQueue());
  ASSERT_EQ(window.openFileWithMode(QString::fromStdString(path.string()), {}), std::nullopt);
  DocumentTab* tab = window.currentTab();
  QAction* toggle = actionNamed(window, "Patch Small Edits in Place");
  ASSERT_NE(toggle, nullptr);
  EXPECT_TRUE(toggle->isChecked());

  QSignalSpy messages(tab, &DocumentTab::statusMessage);
  const auto saveAnEdit = [&](const char* letter) {
    tab->view()->select(0, 1);
    QTest::keyClicks(tab->view(), QString::fromLatin1(letter));
    EXPECT_TRUE(saveAndWait(tab));
    return messages.last().first().toString();
  };
  toggle->trigger();
  EXPECT_FALSE(QSettings().value(MainWindow::kInPlaceSaveKey).toBool());
  EXPECT_EQ(saveAnEdit("A"), "Saved");
  toggle->trigger();
  EXPECT_TRUE(QSettings().value(MainWindow::kInPlaceSaveKey).toBool());
  EXPECT_EQ(saveAnEdit("B"), "Saved in place");
  EXPECT_EQ(readFile(path), "Blpha\nbravo\n");
  window.closeTab(0);
}

// Saving waits in the event loop, where the tab may be closed before the save answers.
TEST(AppMainWindowTest, ATabClosedWhileItsSaveRunsEndsTheWait) {
  testing::TempDir dir;
  const auto path = dir.write("closing.log", "alpha\n");
  MainWindow window(lastingQueue());
  ASSERT_EQ(window.openFileWithMode(QString::fromStdString(path.string()), {}), std::nullopt);
  DocumentTab* tab = window.currentTab();
  QTest::keyClicks(tab->view(), QStringLiteral("x"));
  QObject::connect(tab, &DocumentTab::statusMessage, tab, [tab](const QString& text) {
    if (text == "Saving…") QTimer::singleShot(0, [tab] { delete tab; });
  });
  QAction* save = actionNamed(window, "Save");
  ASSERT_NE(save, nullptr);
  save->trigger();
  EXPECT_EQ(window.tabCount(), 0);
}

TEST(AppLargeFileDialogTest, CardsAndValidationAlertsUseTheirTexts) {
  constexpr int64_t kTenAndAHalfMB = 10 * 1'048'576 + 524'288;
  LargeFileController dialog(QStringLiteral("big.log"), kTenAndAHalfMB, 1'048'576);
  EXPECT_FALSE(dialog.sliceParamsRow()->isVisibleTo(&dialog));
  dialog.selectMode(storage::LargeFileOpenMode::windowedSlice);
  EXPECT_TRUE(dialog.sliceParamsRow()->isVisibleTo(&dialog));
  EXPECT_FALSE(dialog.tailParamsRow()->isVisibleTo(&dialog));
  dialog.sliceStartField()->setValue(5);
  dialog.sliceEndField()->setValue(3);
  EXPECT_EQ(dialog.validate().error(), QStringLiteral("Slice end must be greater than start."));
  dialog.sliceStartField()->setValue(11);
  dialog.sliceEndField()->setValue(20);
  EXPECT_EQ(dialog.validate().error(), QStringLiteral("Slice start is past the end of the file (11 MB)."));
  dialog.sliceStartField()->setValue(-4);
  dialog.sliceEndField()->setValue(2);
  ASSERT_TRUE(dialog.validate().has_value());
  EXPECT_EQ(dialog.validate()->sliceStartMB, 0);
  dialog.selectMode(storage::LargeFileOpenMode::tail);
  dialog.tailField()->setValue(0);
  EXPECT_EQ(dialog.validate().error(), QStringLiteral("Tail size must be at least 1 MB."));

  // The alert is modal with a single OK; the dialog stays open behind it.
  QString alertText;
  QTimer::singleShot(0, [&] {
    auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    ASSERT_NE(box, nullptr);
    alertText = box->text();
    EXPECT_EQ(box->buttons().size(), 1);
    box->accept();
  });
  dialog.openRequested();
  EXPECT_EQ(alertText, QStringLiteral("Tail size must be at least 1 MB."));
  EXPECT_EQ(dialog.request(), std::nullopt);
}

}  // namespace
}  // namespace quorin::app
