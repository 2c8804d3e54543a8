// Where the document meets its file: saving around what the file holds
// beyond the text (a mark, skipped bytes, a deleted file), following and
// rotation, and the document's parts let go off the main thread.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <thread>

#include "document/DocumentTestSupport.h"
#include "support/ManualExecutor.h"

namespace quorin::document {
namespace {

TEST(DocumentFileSafety, AByteOrderMarkSurvivesBothSaveStrategies) {
  const std::string mark = "\xef\xbb\xbf";
  Opened o(mark + "abcabcabcQ", false);
  ASSERT_EQ(o.text(), "abcabcabcQ");  // the mark is not part of the text
  o.doc->replace({6, 9}, "XYZ", {}, {});
  const auto patched = o.save();
  ASSERT_TRUE(patched);
  EXPECT_EQ(patched->strategy, persistence::SaveStrategy::inPlacePatch);
  EXPECT_EQ(readFile(o.file), mark + "abcabcXYZQ");

  o.doc->insert(0, ">", {}, {});
  const auto rewritten = o.save();
  ASSERT_TRUE(rewritten);
  EXPECT_EQ(rewritten->strategy, persistence::SaveStrategy::atomicRewrite);
  EXPECT_EQ(readFile(o.file), mark + ">abcabcXYZQ");
  EXPECT_EQ(o.text(), ">abcabcXYZQ");  // and the document goes on over the new file, mark skipped
}

TEST(DocumentFileSafety, OpeningAFileRemovesWhatAKilledRewriteLeftBesideIt) {
  testing::TempDir dir;
  const pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  ::waitpid(child, nullptr, 0);  // a process that is gone
  char host[256] = {};
  ::gethostname(host, sizeof host - 1);
  const auto leftover = dir.path() / (".quorin-save-" + std::to_string(child) + "@" + host + "-a1B2c3");
  std::filesystem::create_directory(leftover);
  std::ofstream(leftover / "app.log") << "partial copy";
  const auto file = dir.write("app.log", "text\n");

  dispatch::ManualMainQueue main;
  ASSERT_TRUE(Document::open(file.string(), quietOptions(main, std::make_shared<InlineExecutor>())));
  EXPECT_FALSE(std::filesystem::exists(leftover));
}

TEST(DocumentFileSafety, CatchUpThenSaveKeepsTheSkippedBytesInTheFile) {
  Opened o("a\n");
  ASSERT_TRUE(o.doc->startFollowing());
  append(o.file, "SKIPPED-IMPORTANT\n");
  o.doc->catchUpToLive();
  append(o.file, "d\n");
  o.poll();
  ASSERT_EQ(o.text(), "a\nd\n");
  o.doc->replace({0, 1}, "A", {}, {});

  const auto refused = o.save();
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().kind, persistence::SaveError::Kind::skippedLiveBytes);
  EXPECT_EQ(readFile(o.file), "a\nSKIPPED-IMPORTANT\nd\n");

  // Save As may write the shortened text, and says that it did.
  ASSERT_TRUE(o.saveAs(o.dir.path() / "short.log"));
  EXPECT_EQ(readFile(o.dir.path() / "short.log"), "A\nd\n");
  EXPECT_EQ(o.statuses.back(), "Saved without the 18 bytes that Catch Up to Live skipped");
  EXPECT_EQ(readFile(o.file), "a\nSKIPPED-IMPORTANT\nd\n");
  EXPECT_FALSE(o.doc->isModified());
}

TEST(DocumentFileSafety, ADeletedFileCountsAsUnsavedAndSaveWritesItAgain) {
  Opened o("kept text\n");
  std::filesystem::remove(o.file);
  ASSERT_TRUE(o.awaitNotice(Kind::deleted));
  EXPECT_TRUE(o.doc->isModified());  // so closing asks

  const auto saved = o.save();
  ASSERT_TRUE(saved);
  EXPECT_EQ(saved->kind, persistence::SaveOutcome::Kind::wrote);
  EXPECT_EQ(readFile(o.file), "kept text\n");
  EXPECT_FALSE(o.doc->isFileMissing());
  EXPECT_FALSE(o.doc->isModified());
}

TEST(DocumentFileSafety, OutsideChangesAreNoticedAfterFollowingStops) {
  Opened o("one\ntwo\nthree\n");
  ASSERT_TRUE(o.doc->startFollowing());
  o.doc->stopFollowing();
  append(o.file, "four\n");
  ASSERT_TRUE(o.awaitNotice(Kind::reloaded));
  EXPECT_EQ(o.text(), "one\ntwo\nthree\nfour\n");

  std::filesystem::resize_file(o.file, 4);
  o.notices.clear();
  ASSERT_TRUE(o.awaitNotice(Kind::reloaded));
  EXPECT_EQ(o.text(), "one\n");
}

TEST(DocumentFileSafety, RotationSwitchesToTheNewFileAtTheFollowedPath) {
  Opened o("old 1\n");
  ASSERT_TRUE(o.doc->startFollowing());
  std::filesystem::rename(o.file, o.dir.path() / "app.log.1");
  // The watcher sees the rename first and moves the document to the old file's new name.
  ASSERT_TRUE(o.awaitNotice(Kind::renamed));
  o.dir.write("app.log", "new 1\n");
  for (int i = 0; i < 8 && !o.awaitNotice(Kind::rotated); ++i) o.poll();
  const auto rotated =
      std::find_if(o.notices.begin(), o.notices.end(), [](auto& n) { return n.kind == Kind::rotated; });
  ASSERT_NE(rotated, o.notices.end());
  EXPECT_EQ(rotated->message,
            "\u201capp.log\u201d was rotated \u2014 a new file has its name now. Switch to it?");
  EXPECT_EQ(rotated->newPath, o.file.string());

  ASSERT_TRUE(o.doc->switchToRotatedFile());
  EXPECT_EQ(o.doc->path(), o.file.string());
  EXPECT_EQ(o.text(), "new 1\n");
  EXPECT_TRUE(o.doc->isFollowing());
}

TEST(DocumentFileSafety, AFollowedDocumentMayBeLetGoOffTheMainThread) {
  Opened o("a\n");
  ASSERT_TRUE(o.doc->startFollowing());
  // Before, cancelling the follower's timer off the main thread stopped the program.
  std::thread([doc = std::move(o.doc)]() mutable { doc.reset(); }).join();
  o.main.runPending();  // the follower's timer is cancelled here, where it belongs
  append(o.file, "b\n");
  o.poll();
}

TEST(DocumentFileSafety, TextTypedAtTheEndOfASliceStaysInItAndEditable) {
  // The slice's end falls inside a line far longer than the slice.
  const int64_t oneMB = storage::kOpenModeMegabyte;
  Opened o("x\n" + std::string(3 * oneMB, 'L'), false, {storage::LargeFileOpenMode::windowedSlice, 0, 1, 0});
  ASSERT_EQ(o.doc->editableRange(), (storage::ByteRange{0, oneMB}));
  ASSERT_TRUE(o.doc->insert(oneMB, "typed", {}, {}));
  EXPECT_EQ(o.doc->editableRange(), (storage::ByteRange{0, oneMB + 5}));
  ASSERT_TRUE(o.doc->insert(oneMB + 5, " more", {}, {}));
  EXPECT_EQ(o.doc->snapshot().text.text({oneMB, oneMB + 10}), "typed more");
}

TEST(DocumentFileSafety, ABulkEditThatAppliesNothingLeavesTheIndexBuilding) {
  testing::TempDir dir;
  dispatch::ManualMainQueue main;
  auto queue = std::make_shared<testing::ManualExecutor>();
  std::string text;
  for (int i = 0; i < 200; ++i) text += "line " + std::to_string(i) + "\n";
  OpenOptions options = quietOptions(main, queue);
  options.lineIndexLimits.firstPassLines = 4;
  options.lineIndexLimits.passLines = 6;
  auto doc = Document::open(dir.write("t.txt", text).string(), options).value();
  // A reversed range: the table skips the site, yet counts the batch as a version.
  const storage::PieceTable::BulkEditSite reversed{{5, 3}, "x"};
  ASSERT_TRUE(doc->replaceAll({&reversed, 1}, "Replace", {}, {}));
  queue->runAll();
  EXPECT_TRUE(doc->waitForLineIndex(std::chrono::milliseconds(0)));
  EXPECT_EQ(doc->snapshot().lines.lineCount(), 201);
}

TEST(DocumentFileSafety, AProgressHandlerMayClearItselfWhileItRuns) {
  testing::TempDir dir;
  dispatch::ManualMainQueue main;
  auto queue = std::make_shared<testing::ManualExecutor>();
  OpenOptions options = quietOptions(main, queue);
  options.lineIndexLimits.firstPassLines = 2;
  options.lineIndexLimits.passLines = 2;
  auto doc = Document::open(dir.write("t.txt", "a\nb\nc\nd\ne\nf\n").string(), options).value();
  std::string seen;
  doc->setIndexProgressHandler([&doc, &seen, tag = std::string(64, 'x')](const storage::LineIndexProgress&) {
    doc->setIndexProgressHandler(nullptr);  // what a window does once the index is complete
    seen = tag;                             // the closure must still be alive here
  });
  queue->runAll();
  main.runPending();
  EXPECT_EQ(seen, std::string(64, 'x'));
}

}  // namespace
}  // namespace quorin::document
