#include <gtest/gtest.h>

#include <QAction>
#include <QLabel>
#include <QStatusBar>
#include <QTest>
#include <cstdio>

#include "app/DocumentTab.h"
#include "app/MainWindow.h"
#include "app/QtMainQueue.h"
#include "app/TabTestSupport.h"
#include "app/goto/GoToField.h"
#include "app/view/TextView.h"
#include "dispatch/ManualMainQueue.h"
#include "logs/GoToTarget.h"
#include "support/ManualExecutor.h"
#include "support/TempDir.h"

namespace quorin::app {
namespace {

// A log of one message a second from 2026-03-20 12:00:00: an error every
// 1,000 messages (from the 500th) followed by two stack-trace lines, a
// warning every 250 (from the 100th), debug on every tenth, info otherwise.
// `lineOf[i]` is the 0-based line of message i.
struct GeneratedLog {
  explicit GeneratedLog(int messages) {
    for (int i = 0; i < messages; ++i) {
      lineOf.push_back(lines);
      const char* level = i % 1000 == 500  ? "ERROR"
                          : i % 250 == 100 ? "WARN"
                          : i % 10 == 3    ? "DEBUG"
                                           : "INFO";
      char head[96];
      std::snprintf(head, sizeof head, "2026-03-20 %02d:%02d:%02d.000 %-5s [main] message %d\n",
                    12 + i / 3600, i / 60 % 60, i % 60, level, i);
      text += head;
      ++lines;
      if (i % 1000 == 500) {
        text +=
            "    at com.example.Worker.run(Worker.java:42)\n    at java.lang.Thread.run(Thread.java:750)\n";
        lines += 2;
      }
    }
  }
  std::string text;
  std::vector<int64_t> lineOf;
  int64_t lines = 0;
};

struct Tab : TabHarness {
  // `firstPassLines`: the tab opens while the line index knows only these lines.
  explicit Tab(std::string_view text, const std::string& name = "app.log", int64_t firstPassLines = 0) {
    open(text, name, firstPassLines);
    tab->resize(800, 400);
    lineQueue->runAll();
    EXPECT_TRUE(pumpUntil([this] { return indexedAll(); }));
    QObject::connect(tab.get(), &DocumentTab::statusMessage, [this](const QString& text) { status = text; });
  }
  bool indexedAll() const {
    const auto lines = document->snapshot().lines;
    return lines.isComplete && tab->logData()->complete && tab->logData()->linesIndexed == lines.lineCount();
  }
  int64_t caretLine() const { return *tab->view()->caretPosition().line - 1; }
  void moveTo(int64_t line) { tab->view()->setCaret(*document->snapshot().lines.lineStart(line)); }
  // Enter in the go-to field (its time form with `time`): the error shown, empty when it went.
  QString goTo(const QString& text, bool time = false) {
    time ? tab->goToField()->activateTime() : tab->goToField()->activate();
    tab->goToField()->setText(text);
    tab->goToField()->go();
    return tab->goToField()->errorText();
  }

  QString status;
};

TEST(AppLogNavigationTest, LevelStepsLandOnMessageHeadsAndSayWhenThereIsNoMore) {
  const GeneratedLog log(9'000);      // three blocks of lines
  Tab t(log.text, "app.log", 1'000);  // the log index starts before the line index is done
  const auto& at = log.lineOf;
  t.tab->stepToMessage(logs::Level::error, true);
  EXPECT_EQ(t.caretLine(), at[500]);
  t.tab->stepToMessage(logs::Level::error, true);
  EXPECT_EQ(t.caretLine(), at[1500]);
  t.tab->stepToMessage(logs::Level::error, false);
  EXPECT_EQ(t.caretLine(), at[500]);
  // Warning steps stop at errors too.
  t.tab->stepToMessage(logs::Level::warning, true);
  EXPECT_EQ(t.caretLine(), at[600]);
  // Below warning the blocks are scanned; stack-trace lines are not messages.
  t.moveTo(at[500] + 1);
  t.tab->stepToMessage(logs::Level::info, true);
  EXPECT_EQ(t.caretLine(), at[501]);
  t.moveTo(at[8200]);
  t.tab->stepToMessage(logs::Level::notice, false);
  EXPECT_EQ(t.caretLine(), at[8100]);

  t.moveTo(at[8500]);
  t.tab->stepToMessage(logs::Level::error, true);
  EXPECT_EQ(t.caretLine(), at[8500]);
  EXPECT_EQ(t.status, "No more errors below");
  t.moveTo(at[50]);
  t.tab->stepToMessage(logs::Level::warning, false);
  EXPECT_EQ(t.status, "No more warnings or errors above");
}

TEST(AppLogNavigationTest, EditsAndAppendedLinesReachTheIndex) {
  const GeneratedLog log(3'000);
  Tab t(log.text);
  auto caughtUp = [&] {
    return t.pumpUntil([&] {
      return t.tab->logData()->complete && t.tab->logData()->snapshotVersion == t.document->version();
    });
  };
  const int64_t second = *t.document->snapshot().lines.lineStart(1);
  ASSERT_TRUE(t.document->insert(second, "2026-03-20 12:00:00.500 FATAL inserted\n", {}, {}));
  ASSERT_TRUE(caughtUp());
  t.tab->stepToMessage(logs::Level::error, true);
  EXPECT_EQ(t.caretLine(), 1);

  ASSERT_TRUE(t.document->acceptFollowedBytes("2026-03-20 13:00:00.000 ERROR appended\n"));
  ASSERT_TRUE(caughtUp());
  t.moveTo(log.lines - 1);
  t.tab->stepToMessage(logs::Level::error, true);
  EXPECT_EQ(t.caretLine(), log.lines + 1);
}

TEST(AppLogNavigationTest, ALogPastedIntoAnEmptyDocumentIsRecognised) {
  Tab t("", "new.txt");
  EXPECT_FALSE(t.tab->logData()->format.has_value());
  const GeneratedLog log(600);
  ASSERT_TRUE(t.document->insert(0, log.text, {}, {}));
  EXPECT_TRUE(t.pumpUntil(
      [&] { return t.indexedAll() && t.tab->logData()->snapshotVersion == t.document->version(); }));
  EXPECT_TRUE(t.tab->logData()->format.has_value());
  t.moveTo(0);
  t.tab->stepToMessage(logs::Level::error, true);
  EXPECT_EQ(t.caretLine(), log.lineOf[500]);
}

TEST(AppLogNavigationTest, GoToTimesLandOnTheFirstMessageAtOrAfterThem) {
  const GeneratedLog log(9'000);
  Tab t(log.text);
  const auto& at = log.lineOf;
  EXPECT_EQ(t.goTo("2026-03-20 12:30"), "");
  EXPECT_EQ(t.caretLine(), at[1800]);
  EXPECT_EQ(t.tab->caretTimeText().toStdString(), "2026-03-20 12:30:00 · +1 s since previous");
  EXPECT_EQ(t.goTo("+5m"), "");  // from the caret line's time
  EXPECT_EQ(t.caretLine(), at[2100]);
  EXPECT_EQ(t.goTo("13:20", true), "");  // the caret line's day
  EXPECT_EQ(t.caretLine(), at[4800]);
  // From a stack-trace line, offsets count from its message's time.
  t.moveTo(at[500] + 2);
  EXPECT_EQ(t.goTo("+10s", true), "");
  EXPECT_EQ(t.caretLine(), at[510]);

  EXPECT_EQ(t.goTo("2026-03-21"), "");
  EXPECT_EQ(t.caretLine(), log.lines);  // the empty line after the last line break
  EXPECT_EQ(t.status.toStdString(), "Past the last timestamp (2026-03-20 14:29:59) — went to the last line");

  // The time form takes times only, and says so.
  EXPECT_EQ(t.tab->goToField()->helpText(), QString::fromUtf8(logs::kGoToTimeHelp.data()));
  EXPECT_EQ(t.goTo("42", true), "Not a time: try 12:34:56, 2026-09-04 12:34, +5m or -90s");
}

TEST(AppLogNavigationTest, ADocumentWithoutTimestampsRefusesTimesAndHasNoTime) {
  Tab t("just some text\nwith an error word in it\n", "notes.txt");
  EXPECT_EQ(t.goTo("12:00"), QString::fromUtf8(logs::kNoTimestampsMessage.data()));
  EXPECT_EQ(t.goTo("+5m", true), QString::fromUtf8(logs::kNoTimestampsMessage.data()));
  EXPECT_EQ(t.tab->caretTimeText(), "");
  // The general form's help is the time form's while the text is a time.
  t.tab->goToField()->activate();
  t.tab->goToField()->setText("42");
  EXPECT_EQ(t.tab->goToField()->helpText(), QString::fromUtf8(logs::kGoToHelp.data()));
  t.tab->goToField()->setText("12:00");
  EXPECT_EQ(t.tab->goToField()->helpText(), QString::fromUtf8(logs::kGoToTimeHelp.data()));
}

TEST(AppLogNavigationTest, TheGoMenuStepsByLevelAndTheStatusBarShowsTheTime) {
  const GeneratedLog log(3'000);
  testing::TempDir dir;
  QtMainQueue queue;
  MainWindow window(queue);
  ASSERT_EQ(window.openFileWithMode(QString::fromStdString(dir.write("app.log", log.text).string()), {}),
            std::nullopt);
  DocumentTab* tab = window.currentTab();
  EXPECT_TRUE(tab->logData()->format.has_value());  // sampled at once: the first screen shows levels
  for (int i = 0; i < 1000 && !tab->logData()->complete; ++i) QTest::qWait(10);
  auto trigger = [&](const QKeySequence& keys) {
    for (QAction* action : window.findChildren<QAction*>()) {
      if (action->shortcut() == keys) return action->trigger();
    }
    FAIL() << "no action for " << keys.toString().toStdString();
  };
  auto caretLine = [&] { return *tab->view()->caretPosition().line - 1; };
  trigger(QKeySequence(Qt::Key_F8));
  EXPECT_EQ(caretLine(), log.lineOf[500]);
  trigger(QKeySequence(Qt::SHIFT | Qt::Key_F6));  // the step level is info unless chosen
  EXPECT_EQ(caretLine(), log.lineOf[499]);
  bool timeShown = false;
  for (QLabel* label : window.statusBar()->findChildren<QLabel*>())
    timeShown = timeShown || label->text() == "2026-03-20 12:08:19 · +1 s since previous";
  EXPECT_TRUE(timeShown);
  trigger(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_L));
  EXPECT_TRUE(tab->goToField()->isTimeForm());
}

}  // namespace
}  // namespace quorin::app
