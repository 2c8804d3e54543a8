#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "bookmarks/Reanchor.h"
#include "bookmarks/SidecarStore.h"
#include "document/DocumentTestSupport.h"

namespace quorin::bookmarks {
namespace {

namespace fs = std::filesystem;
using document::Opened;

std::string numberedLines(int from, int to) {
  std::string text;
  for (int i = from; i < to; ++i) text += "line " + std::to_string(i) + "\n";
  return text;
}

// A sidecar for `path` with bookmarks on `lines`, hashed from the file as it is.
Sidecar sidecarOf(const fs::path& path, const std::vector<int64_t>& lines, const std::string& note = "") {
  Opened opened(testing::readFile(path), false);
  std::vector<Bookmark> marks;
  for (const int64_t line : lines) marks.push_back({line, note});
  return sidecarFor(describeFile(path.string()).value(), marks, {}, "", opened.doc->snapshot());
}

ReanchorResult reanchorAgainst(const FoundSidecar& found, const std::string& text) {
  Opened opened(text, false);
  return reanchor(found.sidecar, found.unchanged, opened.doc->snapshot());
}

std::vector<int64_t> linesOf(const std::vector<Bookmark>& marks) {
  std::vector<int64_t> lines;
  for (const Bookmark& mark : marks) lines.push_back(mark.line);
  return lines;
}

TEST(SidecarStore, FindsAFileAgainAfterARenameAndAfterARewriteWithAnotherText) {
  testing::TempDir dir;
  SidecarStore store(dir.path() / "sidecars");
  const fs::path log = dir.write("app.log", numberedLines(0, 100));
  ASSERT_TRUE(store.write(sidecarOf(log, {3, 50, 99}, "why")));

  // Renamed: same inode and head; the lines are trusted as they are.
  const fs::path renamed = dir.path() / "app-old.log";
  fs::rename(log, renamed);
  auto found = store.find(describeFile(renamed.string()).value());
  ASSERT_TRUE(found);
  EXPECT_TRUE(found->unchanged);
  EXPECT_EQ(linesOf(reanchorAgainst(*found, testing::readFile(renamed)).bookmarks),
            (std::vector<int64_t>{3, 50, 99}));
  // The next write takes the new name and drops the old one.
  Sidecar moved = found->sidecar;
  moved.file = describeFile(renamed.string()).value();
  ASSERT_TRUE(store.write(moved, found->foundAt));
  EXPECT_EQ(std::distance(fs::directory_iterator(store.directory()), fs::directory_iterator()), 1);

  // Rewritten in place by another program (new inode, same head): two lines
  // inserted above line 50, line 99's text gone. Found by path; bookmarks
  // follow their text, and the one whose text went is lost, not guessed.
  fs::remove(renamed);
  std::string rewritten = numberedLines(0, 10) + "new\nnew\n" + numberedLines(10, 99) + "changed\n";
  dir.write("app-old.log", rewritten);
  found = store.find(describeFile(renamed.string()).value());
  ASSERT_TRUE(found);
  EXPECT_FALSE(found->unchanged);
  const auto result = reanchorAgainst(*found, rewritten);
  EXPECT_EQ(linesOf(result.bookmarks), (std::vector<int64_t>{3, 52}));
  EXPECT_EQ(result.bookmarks[1].note, "why");
  ASSERT_EQ(result.lost.size(), 1u);
  EXPECT_EQ(result.lost[0].line, 99);

  // A file with another head is not this one's.
  const fs::path other = dir.write("other.log", numberedLines(5, 50));
  EXPECT_FALSE(store.find(describeFile(other.string()).value()));
}

TEST(SidecarStore, ReanchorsToTheNearestRepeatedLineAndNeverTwiceToOne) {
  testing::TempDir dir;
  std::string text;
  for (int i = 0; i < 40; ++i) text += i % 10 == 0 ? "ERROR same\n" : "ok " + std::to_string(i) + "\n";
  const fs::path log = dir.write("a.log", text);
  Sidecar sidecar = sidecarOf(log, {10, 20});
  // Line 10 becomes "ok": its bookmark goes to the nearest "ERROR same" (0 and
  // 20 are as near: the earlier wins); line 20's stays.
  text.replace(text.find("ERROR same\nok 11"), 10, "ok 10x    ");
  const auto result = reanchor(sidecar, false, Opened(text, false).doc->snapshot());
  EXPECT_EQ(linesOf(result.bookmarks), (std::vector<int64_t>{0, 20}));
  EXPECT_TRUE(result.lost.empty());
}

TEST(SidecarStore, SetsACorruptSidecarAsideAndPrunesThoseOfFilesLongGone) {
  testing::TempDir dir;
  SidecarStore store(dir.path() / "sidecars");
  const fs::path log = dir.write("app.log", numberedLines(0, 10));
  const SidecarFile file = describeFile(log.string()).value();
  fs::create_directories(store.directory());
  std::ofstream(store.directory() / SidecarStore::fileName(file)) << "{\"quorinSidecar\": 1, \"file\": [";
  EXPECT_FALSE(store.find(file));
  EXPECT_TRUE(fs::exists(store.directory() / "corrupt" / SidecarStore::fileName(file)));

  ASSERT_TRUE(store.write(sidecarOf(log, {1})));
  const fs::path gone = dir.write("gone.log", "bye\n");
  ASSERT_TRUE(store.write(sidecarOf(gone, {0})));
  fs::remove(gone);
  const auto now = std::chrono::system_clock::now();
  EXPECT_EQ(store.prune(now), 0);  // gone, but written just now
  EXPECT_EQ(store.prune(now + std::chrono::hours(24 * 91)), 1);
  EXPECT_TRUE(store.find(file));
}

}  // namespace
}  // namespace quorin::bookmarks
