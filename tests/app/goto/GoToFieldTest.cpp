#include <gtest/gtest.h>

#include <QLabel>
#include <QLineEdit>

#include "app/find/PanelTestSupport.h"
#include "app/goto/GoToField.h"
#include "dispatch/ManualMainQueue.h"
#include "support/ManualExecutor.h"

namespace quorin::app {
namespace {

// "line 1" … "line 100", each ending in a line break.
std::string numberedLines(int count) {
  std::string text;
  for (int i = 1; i <= count; ++i) text += "line " + std::to_string(i) + "\n";
  return text;
}

struct Fixture {
  testing::TempDir dir;
  dispatch::ManualMainQueue main;
  std::shared_ptr<testing::ManualExecutor> indexQueue = std::make_shared<testing::ManualExecutor>();
  std::shared_ptr<document::Document> doc;
  FakeEditorSurface surface;

  explicit Fixture(int64_t firstPassLines = 0) {
    doc = openTestDocument(dir, numberedLines(100), main, indexQueue, firstPassLines);
    if (firstPassLines == 0) indexQueue->runAll();
    main.runPending();
  }
  int64_t lineStart(int line) const { return doc->snapshot().lines.lineStart(line - 1).value(); }
};

// Types `text` and presses Enter; returns the message under the field.
QString enter(GoToField& field, const QString& text) {
  field.setText(text);
  field.go();
  return field.errorText();
}

TEST(GoToFieldTest, ShowsTheHintHelpAndEveryRefusal) {
  Fixture f;
  GoToField field(f.doc, f.surface, f.main);
  EXPECT_EQ(field.findChild<QLineEdit*>("goToInput")->placeholderText(), "Line · 50% · b1234 · r1234");
  EXPECT_EQ(
      field.findChild<QLabel*>("goToHelp")->text(),
      "A line number, a percentage of the file (50%), a byte offset (b1234), or a record (r1234). Line and "
      "record numbers refer to the original document.");

  // The parser's own refusals are its tests'; one shows that they reach the field.
  EXPECT_EQ(enter(field, "0"), "Line numbers start at 1");
  EXPECT_EQ(
      enter(field, "hello"),
      "Not a line, percentage, byte offset, record or time: try 42, 50%, b1234, r1234, 12:34:56, 2026-09-04 "
      "12:34 or +5m");
  const QString noTimes =
      "No timestamps recognized in this document — Go to Time needs a log with a timestamp at the start of "
      "its lines";
  EXPECT_EQ(enter(field, "12:34"), noTimes);
  EXPECT_EQ(enter(field, "+5m"), noTimes);
  EXPECT_EQ(enter(field, "r3"), "Records need the CSV index: open this document in the Table view first");
  EXPECT_EQ(enter(field, ""), "");
  EXPECT_EQ(f.surface.selected.end, 0);  // none of these moved the caret

  // Records go through whoever holds the CSV index.
  field.setRecordResolver([](int64_t record) -> std::expected<int64_t, QString> {
    if (record > 3) return std::unexpected(QString("Only 3 records"));
    return record * 10;
  });
  EXPECT_EQ(enter(field, "r4"), "Only 3 records");
  EXPECT_EQ(enter(field, "r2"), "");
  EXPECT_EQ(f.surface.selected.end, 20);
}

TEST(GoToFieldTest, ResolvesLinesPercentagesAndBytes) {
  Fixture f;
  GoToField field(f.doc, f.surface, f.main);
  std::vector<qint64> jumps;
  QObject::connect(&field, &GoToField::jumped, [&](qint64 offset) { jumps.push_back(offset); });

  enter(field, " 42 ");
  EXPECT_EQ(f.surface.selected.end, f.lineStart(42));
  enter(field, "50%");  // the start of the line holding the middle byte
  const int64_t middle = f.doc->length() / 2;
  EXPECT_LE(f.surface.selected.end, middle);
  EXPECT_GT(f.surface.selected.end + 9, middle);
  EXPECT_EQ(f.doc->snapshot().text.byte(f.surface.selected.end - 1), uint8_t{'\n'});
  enter(field, "B7");
  EXPECT_EQ(f.surface.selected.end, 7);
  EXPECT_EQ(jumps, (std::vector<qint64>{f.lineStart(42), jumps[1], 7}));

  // Past the end: the end, and a word in the status bar.
  enter(field, "500");
  EXPECT_EQ(f.surface.selected.end, f.lineStart(101));  // the empty line after the last line break
  EXPECT_EQ(f.surface.status, "Line 500 is past the end — went to the last line (101)");
  enter(field, "b99999");
  EXPECT_EQ(f.surface.selected.end, f.doc->length());
  EXPECT_EQ(f.surface.status, "Byte offset 99,999 is past the end (" + QString::number(f.doc->length()) +
                                  " bytes) — went to the end");
}

TEST(GoToFieldTest, WaitsForTheLineIndexToReachALine) {
  Fixture f(4);  // only the first few lines are indexed
  GoToField field(f.doc, f.surface, f.main);
  EXPECT_TRUE(enter(field, "80").startsWith("Waiting for the line index to reach line 80"));
  EXPECT_TRUE(field.isWaitingForIndex());
  f.main.advance(1'000'000'000);
  EXPECT_TRUE(field.isWaitingForIndex());  // the index has not moved

  f.indexQueue->runAll();
  f.main.advance(1'000'000'000);
  EXPECT_FALSE(field.isWaitingForIndex());
  EXPECT_EQ(f.surface.selected.end, f.lineStart(80));

  // Typing or Esc ends a wait.
  Fixture g(4);
  GoToField other(g.doc, g.surface, g.main);
  enter(other, "90");
  other.close();
  g.indexQueue->runAll();
  g.main.advance(1'000'000'000);
  EXPECT_EQ(g.surface.selected.end, 0);
}

}  // namespace
}  // namespace quorin::app
