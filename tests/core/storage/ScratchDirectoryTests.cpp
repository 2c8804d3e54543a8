#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <optional>

#include "storage/ScratchDirectory.h"
#include "support/TempDir.h"

namespace quorin::storage {
namespace {

namespace fs = std::filesystem;

// Points XDG_DATA_HOME at a private directory for the test's lifetime.
struct PrivateDataHome {
  testing::TempDir dir;
  std::optional<std::string> saved;
  fs::path root = dir.path() / "Quorin" / "scratch";
  PrivateDataHome() {
    if (const char* old = std::getenv("XDG_DATA_HOME")) saved = old;
    ::setenv("XDG_DATA_HOME", dir.path().c_str(), 1);
  }
  ~PrivateDataHome() { saved ? ::setenv("XDG_DATA_HOME", saved->c_str(), 1) : ::unsetenv("XDG_DATA_HOME"); }
};

std::unique_ptr<ScratchDirectory> makeDocumentDirectory() {
  auto made = ScratchDirectory::createForDocument();
  if (!made) throw std::runtime_error(made.error());
  return std::move(*made);
}

TEST(ScratchDirectory, PrivateDirectoryRemovedWithItsContentsAndCleanerSparesLiveOnes) {
  PrivateDataHome home;
  const fs::path& root = home.root;
  fs::path path;
  {
    auto scratch = makeDocumentDirectory();
    path = scratch->path();
    EXPECT_EQ(path.parent_path(), root);
    EXPECT_TRUE(path.filename().string().starts_with("doc-"));
    EXPECT_EQ(fs::status(root).permissions(), fs::perms::owner_all);
    EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_all);
    EXPECT_TRUE(fs::exists(path / "owner.lock"));
    std::ofstream(path / "lineindex.bin") << "data";
    EXPECT_NE(makeDocumentDirectory()->path(), path);

    // Only a directory whose owner lock is free (crashed) or that is old and never locked counts as stale.
    for (const char* dir : {"doc-crashed", "doc-old-unlocked", "doc-being-created"})
      fs::create_directory(root / dir);
    std::ofstream(root / "doc-crashed" / "owner.lock") << "";
    std::ofstream(root / "doc-crashed" / "lineindex.bin") << "data";
    fs::last_write_time(root / "doc-old-unlocked",
                        fs::file_time_type::clock::now() - std::chrono::minutes(5));
    std::ofstream(root / "journal-1.bin") << "journal";
    std::ofstream(root / "doc-not-a-directory") << "";
    EXPECT_EQ(ScratchDirectory::cleanStaleDocumentDirectories(), 2);
    EXPECT_FALSE(fs::exists(root / "doc-crashed"));
    EXPECT_FALSE(fs::exists(root / "doc-old-unlocked"));
    EXPECT_TRUE(fs::exists(path / "lineindex.bin"));
    for (const char* kept : {"doc-being-created", "journal-1.bin", "doc-not-a-directory"}) {
      EXPECT_TRUE(fs::exists(root / kept)) << kept;
    }
  }
  EXPECT_FALSE(fs::exists(path));
}

}  // namespace
}  // namespace quorin::storage
