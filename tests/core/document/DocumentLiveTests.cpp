#include <gtest/gtest.h>

#include <deque>

#include "document/DocumentTestSupport.h"

namespace quorin::document {
namespace {

using Live = Opened;

TEST(DocumentLive, OutsideWritesReloadOrAskDependingOnUnsavedEdits) {
  Live live("one\n");
  append(live.file, "two\n");
  ASSERT_TRUE(live.awaitNotice(1));
  EXPECT_EQ(live.notices[0].kind, Kind::reloaded);
  EXPECT_EQ(live.text(), "one\ntwo\n");
  EXPECT_FALSE(live.doc->isModified());

  live.doc->insert(0, "mine ", {}, {});
  append(live.file, "three\n");
  ASSERT_TRUE(live.awaitNotice(2));
  EXPECT_EQ(live.notices[1].kind, Kind::externalChange);
  EXPECT_EQ(live.notices[1].message, "\u201capp.log\u201d changed on disk. Reload it, or keep your version?");
  std::optional<std::expected<persistence::SaveOutcome, persistence::SaveError>> saved;
  live.doc->save([&](const auto& r) { saved = r; });
  EXPECT_EQ(saved->error().kind, persistence::SaveError::Kind::externallyModified);

  live.doc->resolveExternalChange(false);  // keep mine: the save rewrites the file with this text
  live.doc->undo();                        // even back at the text last saved, the file holds another one now
  EXPECT_TRUE(live.doc->isModified());
  live.doc->redo();
  live.doc->save([&](const auto& r) { saved = r; });
  live.main.runPending();
  ASSERT_TRUE(*saved);
  EXPECT_EQ((*saved)->strategy, persistence::SaveStrategy::atomicRewrite);
  EXPECT_EQ(readFile(live.file), "mine one\ntwo\n");
}

TEST(DocumentLive, OurOwnSaveKeepsTheLineEndingWhateverBreakComesFirstNow) {
  Live live("one\ntwo\nthree\n");
  live.doc->insert(0, "x\r", {}, {});  // a lone CR is now the first break in the file
  std::optional<std::expected<persistence::SaveOutcome, persistence::SaveError>> saved;
  live.doc->save([&](const auto& r) { saved = r; });
  live.main.runPending();
  ASSERT_TRUE(saved && *saved);
  EXPECT_EQ(live.doc->lineEnding(), text::LineEnding::lf);
  ASSERT_TRUE(live.doc->waitForLineIndex(std::chrono::seconds(10)));
  EXPECT_EQ(live.doc->snapshot().lines.lineCount(), 4);  // "x\rone", "two", "three", "" (split at CR: 2)
}

TEST(DocumentLive, RenamesAndDeletionsKeepTheText) {
  Live live("kept\n");
  std::filesystem::rename(live.file, live.dir.path() / "app.log.1");
  ASSERT_TRUE(live.awaitNotice(1));
  EXPECT_EQ(live.notices[0].kind, Kind::renamed);
  EXPECT_EQ(live.doc->path(), (live.dir.path() / "app.log.1").string());
  std::filesystem::remove(live.dir.path() / "app.log.1");
  ASSERT_TRUE(live.awaitNotice(2));
  EXPECT_EQ(live.notices[1].kind, Kind::deleted);
  EXPECT_TRUE(live.doc->isFileMissing());
  EXPECT_EQ(live.text(), "kept\n");
}

TEST(DocumentLive, FollowedBytesJoinTheDocumentWithoutBeingEdits) {
  Live live("a\n");
  ASSERT_TRUE(live.doc->startFollowing());
  append(live.file, "b\nc\n");
  live.main.advance(1'000'000'000);
  EXPECT_EQ(live.text(), "a\nb\nc\n");
  EXPECT_FALSE(live.doc->isModified());
  EXPECT_FALSE(live.doc->canUndo());
  EXPECT_EQ(live.doc->snapshot().lines.lineStart(2), 4);

  append(live.file, "skipped\n");
  live.doc->catchUpToLive();
  EXPECT_EQ(live.doc->skippedRanges(), (std::vector<storage::ByteRange>{{6, 14}}));
  append(live.file, "d\n");
  live.main.advance(1'000'000'000);
  EXPECT_EQ(live.text(), "a\nb\nc\nd\n");

  std::filesystem::resize_file(live.file, 2);  // copytruncate
  live.main.advance(1'000'000'000);
  for (int i = 0; i < 20; ++i) live.main.waitAndRun(std::chrono::milliseconds(10));
  EXPECT_EQ(live.text(), "a\n");
  EXPECT_TRUE(std::any_of(live.notices.begin(), live.notices.end(),
                          [](const auto& n) { return n.kind == Kind::truncated; }));
  EXPECT_TRUE(live.doc->isFollowing());
  append(live.file, "again\n");
  live.main.advance(1'000'000'000);
  EXPECT_EQ(live.text(), "a\nagain\n");
}

}  // namespace
}  // namespace quorin::document
