#include "storage/ScratchDirectory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <optional>

#include "support/TempDir.h"

namespace quorin::storage {
namespace {

namespace fs = std::filesystem;
using testing::TempDir;

// Points XDG_DATA_HOME at a private directory for the test's lifetime.
class PrivateDataHome {
 public:
  PrivateDataHome() {
    if (const char* old = std::getenv("XDG_DATA_HOME")) saved_ = old;
    ::setenv("XDG_DATA_HOME", dir_.path().c_str(), 1);
  }
  ~PrivateDataHome() {
    if (saved_) ::setenv("XDG_DATA_HOME", saved_->c_str(), 1);
    else ::unsetenv("XDG_DATA_HOME");
  }
  fs::path scratchRoot() const { return dir_.path() / "Quorin" / "scratch"; }

 private:
  TempDir dir_;
  std::optional<std::string> saved_;
};

unsigned modeOf(const fs::path& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 ? info.st_mode & 0777 : 0;
}

std::unique_ptr<ScratchDirectory> makeDocumentDirectory() {
  auto made = ScratchDirectory::createForDocument();
  if (!made) throw std::runtime_error(made.error());
  return std::move(*made);
}

TEST(ScratchDirectory, PrivateDirectoryUnderDataHomeRemovedWithItsContents) {
  PrivateDataHome home;
  fs::path path;
  {
    auto scratch = makeDocumentDirectory();
    path = scratch->path();
    EXPECT_EQ(path.parent_path(), home.scratchRoot());
    EXPECT_TRUE(path.filename().string().starts_with("doc-"));
    EXPECT_EQ(modeOf(home.scratchRoot()), 0700u);
    EXPECT_EQ(modeOf(path), 0700u);
    EXPECT_TRUE(fs::exists(path / "owner.lock"));
    std::ofstream(path / "lineindex.bin") << "data";
    EXPECT_NE(makeDocumentDirectory()->path(), path);
  }
  EXPECT_FALSE(fs::exists(path));
}

TEST(ScratchDirectory, CleanerRemovesOnlyUnownedDocumentDirectories) {
  PrivateDataHome home;
  auto live = makeDocumentDirectory();
  const fs::path root = home.scratchRoot();
  fs::create_directory(root / "doc-crashed");
  std::ofstream(root / "doc-crashed" / "owner.lock") << "";
  std::ofstream(root / "doc-crashed" / "lineindex.bin") << "data";
  fs::create_directory(root / "doc-old-unlocked");
  fs::last_write_time(root / "doc-old-unlocked", fs::file_time_type::clock::now() - std::chrono::minutes(5));
  fs::create_directory(root / "doc-being-created");
  std::ofstream(root / "journal-1.bin") << "journal";
  std::ofstream(root / "doc-not-a-directory") << "";

  EXPECT_EQ(ScratchDirectory::cleanStaleDocumentDirectories(), 2);
  EXPECT_FALSE(fs::exists(root / "doc-crashed"));
  EXPECT_FALSE(fs::exists(root / "doc-old-unlocked"));
  EXPECT_TRUE(fs::exists(root / "doc-being-created"));
  EXPECT_TRUE(fs::exists(live->path() / "owner.lock"));
  EXPECT_TRUE(fs::exists(root / "journal-1.bin"));
  EXPECT_TRUE(fs::exists(root / "doc-not-a-directory"));
}

}  // namespace
}  // namespace quorin::storage
