#pragma once

#include <fcntl.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "persistence/SaveCoordinator.h"
#include "storage/PieceTable.h"
#include "storage/StorageTestSupport.h"
#include "support/FakeFileIo.h"

namespace quorin::persistence {

class FakeVolumes final : public VolumeInfo {
 public:
  bool local = true;
  std::optional<uint64_t> available;
  bool isLocal(const std::filesystem::path&) const override { return local; }
  std::optional<uint64_t> availableBytes(const std::filesystem::path&) const override { return available; }
};

inline int failWith(int err) {
  errno = err;
  return -1;
}

using testing::readFile;

// A file, a table over it with same-length edits applied, and the job that saves them.
struct Case {
  testing::TempDir dir;
  std::filesystem::path file;
  std::shared_ptr<storage::PieceTable> table;
  std::vector<PatchEdit> edits;
  storage::FileIdentity opened;

  explicit Case(std::string text = std::string(4096, '.')) {
    file = dir.write("target.log", text);
    opened = *storage::FileIdentity::ofPath(file.string());
    table = std::make_shared<storage::PieceTable>(testing::bufferOver(dir, text));
    // bufferOver maps its own copy ("file.txt"), so the target's identity is its own.
  }
  std::filesystem::path source() const { return dir.path() / "file.txt"; }
  void edit(int64_t offset, std::string bytes) {
    const std::string before =
        table->readBytes({offset, offset + static_cast<int64_t>(bytes.size())}).value();
    table->replace({offset, offset + static_cast<int64_t>(bytes.size())}, bytes);
    edits.push_back({static_cast<uint64_t>(offset), before, std::move(bytes)});
  }
  SaveJob job() const {
    return {
        .targetPath = file.string(), .snapshot = table->snapshot(), .edits = edits, .openedIdentity = opened};
  }
  std::string expected() const { return testing::wholeText(*table); }
};

}  // namespace quorin::persistence
