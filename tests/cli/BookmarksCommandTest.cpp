#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>

#include "CliTestSupport.h"
#include "support/TempDir.h"

namespace quorin::cli {
namespace {

namespace fs = std::filesystem;

// Sidecars go to a directory of the test's own.
struct DataHome {
  testing::TempDir dir;
  DataHome() { ::setenv("XDG_DATA_HOME", dir.path().c_str(), 1); }
  ~DataHome() { ::unsetenv("XDG_DATA_HOME"); }
};

constexpr std::string_view kLog =
    "2026-03-20 12:00:00 INFO start\n"
    "2026-03-20 12:00:01 ERROR boom\n"
    "  at x\n"
    "2026-03-20 12:00:05 WARN slow\n";

TEST(BookmarksCommandTest, KeepsBookmarksInTheSidecarThroughRenamesAndRewrites) {
  const DataHome home;
  const testing::TempDir dir;
  const std::string path = dir.write("app.log", kLog).string();
  EXPECT_EQ(run({"bookmarks", "--add", "2", "--add", "3", "--note", "first error", path}).status, 0);
  EXPECT_EQ(run({"bookmarks", "--remove", "3", path}).status, 0);
  const std::string listed = "2\t2026-03-20 12:00:01\tfirst error\t2026-03-20 12:00:01 ERROR boom\n";
  EXPECT_EQ(run({"bookmarks", path}), (Outcome{0, listed, ""}));

  // Renamed, then rewritten by another program with two lines above: the
  // bookmark follows its text.
  const std::string renamed = (dir.path() / "app.log.1").string();
  fs::rename(path, renamed);
  EXPECT_EQ(run({"bookmarks", renamed}), (Outcome{0, listed, ""}));
  fs::remove(renamed);
  dir.write("app.log.1", "banner\nbanner\n" + std::string(kLog));
  EXPECT_EQ(run({"bookmarks", renamed}).out,
            "4\t2026-03-20 12:00:01\tfirst error\t2026-03-20 12:00:01 ERROR boom\n");
  EXPECT_EQ(std::distance(fs::directory_iterator(home.dir.path() / "Quorin" / "sidecars"),
                          fs::directory_iterator()),
            1);

  // A line that is not in the file changes nothing.
  const Outcome wrong = run({"bookmarks", "--add", "99", renamed});
  EXPECT_EQ(wrong.status, 2);
  EXPECT_EQ(wrong.err, "quorin-cli: 99 is not a line of the file (1 to 7)\n");
}

TEST(BookmarksCommandTest, WritesTheIncidentReport) {
  const DataHome home;
  const testing::TempDir dir;
  const std::string path = dir.write("app.log", kLog).string();
  ASSERT_EQ(run({"bookmarks", "--add", "2", "--note", "why <it> broke", path}).status, 0);
  const std::string out = (dir.path() / "report.html").string();
  EXPECT_EQ(run({"report", "--context", "1", "-o", out, path}), (Outcome{0, "", ""}));
  std::ifstream in(out);
  const std::string html{std::istreambuf_iterator<char>(in), {}};
  EXPECT_TRUE(html.starts_with("<!DOCTYPE html>"));
  EXPECT_TRUE(html.contains("<blockquote>why &lt;it&gt; broke</blockquote>"));
  EXPECT_TRUE(html.contains("  at x"));
  const Outcome md = run({"report", path});
  EXPECT_TRUE(md.out.contains("### Line 2 · 2026-03-20 12:00:01\n\n> why <it> broke\n")) << md.out;
  EXPECT_EQ(run({"report", "--context", "51", path}).status, 2);
}

}  // namespace
}  // namespace quorin::cli
