#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace quorin::testing {

// A fresh directory under the system temp dir, removed with its contents on destruction.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  // Writes `bytes` to a file named `name` in the directory and returns its path.
  std::filesystem::path write(const std::string& name, std::string_view bytes) const;

 private:
  std::filesystem::path path_;
};

// The bytes of the file at `path`; empty when it cannot be read.
std::string readFile(const std::filesystem::path& path);

// UTF-16LE bytes of `text`, after the byte-order mark FF FE.
std::string utf16LEWithMark(std::u16string_view text);

}  // namespace quorin::testing
