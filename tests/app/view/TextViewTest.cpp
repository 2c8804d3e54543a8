#include <gtest/gtest.h>

#include <QApplication>
#include <QClipboard>
#include <QScrollBar>
#include <QTest>
#include <memory>

#include "ViewTestSupport.h"
#include "app/view/TextView.h"

namespace quorin::app {
namespace {

TEST(AppTextViewTest, TypingIsOneUndoStepThatRestoresTheCaret) {
  testing::ViewOn on("first\nsecond\n");
  on.view->setCaret(6);
  on.type(QStringLiteral("new "));
  on.key(Qt::Key_Return);
  EXPECT_EQ(on.text(), "first\nnew \nsecond\n");
  EXPECT_EQ(on.view->caret(), 11);
  on.view->closeTypingGroup();
  EXPECT_EQ(on.view->undoActionText(), QStringLiteral("Undo Typing"));
  on.view->undo();
  EXPECT_EQ(on.text(), "first\nsecond\n");
  EXPECT_EQ(on.view->caret(), 6);
  EXPECT_EQ(on.view->redoActionText(), QStringLiteral("Redo Typing"));
  on.view->redo();
  EXPECT_EQ(on.text(), "first\nnew \nsecond\n");
  EXPECT_EQ(on.view->caret(), 11);
}

TEST(AppTextViewTest, EditingKeysRespectCrLfAndMultiByteCharacters) {
  testing::ViewOn on("ab\r\nc\xC3\xA9\r\n");
  on.view->setCaret(4);       // start of the second line
  on.key(Qt::Key_Backspace);  // removes the whole CRLF
  EXPECT_EQ(on.text(), "abc\xC3\xA9\r\n");
  on.key(Qt::Key_End);
  EXPECT_EQ(on.view->caret(), 5);
  on.key(Qt::Key_Backspace);  // removes é, both bytes
  EXPECT_EQ(on.text(), "abc\r\n");
  on.key(Qt::Key_Return);  // the document's own line ending
  EXPECT_EQ(on.text(), "abc\r\n\r\n");
  on.key(Qt::Key_Left);
  EXPECT_EQ(on.view->caret(), 3);
  on.key(Qt::Key_Delete);
  EXPECT_EQ(on.text(), "abc\r\n");
}

TEST(AppTextViewTest, VerticalMovesKeepTheColumnAndSelectionsExtendWithShift) {
  testing::ViewOn on("0123456789\nab\n0123456789\n");
  on.view->setCaret(7);
  on.key(Qt::Key_Down);
  EXPECT_EQ(on.view->caret(), 13);  // end of the short line
  on.key(Qt::Key_Down);
  EXPECT_EQ(on.view->caret(), 21);  // back in column 7
  on.key(Qt::Key_Home, Qt::ShiftModifier);
  EXPECT_EQ(on.view->selection().begin, 21);
  EXPECT_EQ(on.view->selection().end, 14);
  on.view->copy();
  EXPECT_EQ(QApplication::clipboard()->text(), QStringLiteral("0123456"));
  on.type(QStringLiteral("X"));
  EXPECT_EQ(on.text(), "0123456789\nab\nX789\n");
  on.key(Qt::Key_End, Qt::ControlModifier);
  EXPECT_EQ(on.view->caret(), on.doc->length());
}

TEST(AppTextViewTest, AReadOnlyDocumentRefusesEditsWithAStatusMessage) {
  testing::ViewOn on("text\n", storage::LargeFileOpenMode::readOnlyInspect);
  QString message;
  QObject::connect(on.view.get(), &TextView::statusMessage, [&](const QString& text) { message = text; });
  on.type(QStringLiteral("x"));
  EXPECT_EQ(on.text(), "text\n");
  EXPECT_EQ(message, QStringLiteral("This document is open read-only."));
}

TEST(AppTextViewTest, ScrollingBeforeTheIndexIsCompleteLandsOnLineStartsAndCorrectsItself) {
  std::string text;
  for (int i = 0; i < 5000; ++i) text += "row " + std::to_string(i) + "\n";
  testing::ViewOn on(text, storage::LargeFileOpenMode::wholeFileVirtual, 20);
  ASSERT_FALSE(on.doc->snapshot().lines.isComplete);
  QScrollBar* bar = on.view->verticalScrollBar();
  bar->setValue(bar->maximum() * 9 / 10);
  const int64_t top = on.view->topOffset();
  EXPECT_GT(top, static_cast<int64_t>(text.size()) / 2);
  EXPECT_EQ(text[static_cast<size_t>(top - 1)], '\n');
  on.queue->runAll();  // the index completes
  on.main.runPending();
  on.view->refreshText();
  EXPECT_EQ(on.view->topOffset(), top);  // what is shown stays put; the thumb follows the exact count
  on.view->scrollByRows(1'000'000);
  EXPECT_EQ(on.view->visibleLineStarts().back(), static_cast<int64_t>(text.size()));
}

// A jump (a go-to byte offset, a search hit) scrolls sideways only as far as
// it takes to show its column, never past the text onto an empty page.
TEST(AppTextViewTest, AJumpScrollsSidewaysOnlyToShowItsColumn) {
  std::string text;
  for (int i = 0; i < 300; ++i) text += "short line " + std::to_string(i) + "\n";
  const auto longStart = static_cast<int64_t>(text.size());
  text += std::string(3000, 'x') + "\n";
  for (int i = 0; i < 300; ++i) text += "short line " + std::to_string(i) + "\n";
  testing::ViewOn on(text);
  QScrollBar* bar = on.view->horizontalScrollBar();
  const auto shortOffset = static_cast<int64_t>(text.find("line 123")) + 7;
  on.view->select(shortOffset, shortOffset);
  EXPECT_EQ(bar->value(), 0);
  on.view->select(longStart + 2500, longStart + 2500);
  EXPECT_GT(bar->value(), 2400);
  EXPECT_LT(bar->value(), 2500);
  // Back to a short line, a few columns in: from its start, not its last letters.
  const auto laterShort = static_cast<int64_t>(text.rfind("line 250")) + 8;
  on.view->select(laterShort, laterShort);
  EXPECT_EQ(bar->value(), 0);
}

}  // namespace
}  // namespace quorin::app
