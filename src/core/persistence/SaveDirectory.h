#pragma once

#include <expected>
#include <filesystem>
#include <optional>
#include <string>

namespace quorin::persistence {

// Removes the private directories that rewrites killed part-way left beside
// the files in `directory` (each holds a partial copy of a user's file):
// only those made on this host by a process that no longer runs. Never
// fails: what cannot be examined or removed now stays for a later call.
void removeAbandonedSaveDirectories(const std::filesystem::path& directory);

// A rewrite's private directory beside its target (same file system, so the
// final rename is atomic), named for its owner — ".quorin-save-<pid>@<host>-"
// and six random characters — so that a later run can tell an abandoned one
// from one in use. Removed with its contents when this goes.
//
// Thread-safety: an object belongs to one save.
class SaveDirectory {
 public:
  static constexpr std::string_view kPrefix = ".quorin-save-";

  // Creates one in `parent`; errno on failure.
  static std::expected<SaveDirectory, int> create(const std::filesystem::path& parent);
  // The owner recorded in a directory's name; absent for anything else.
  struct Owner {
    long pid = 0;
    std::string host;
    bool operator==(const Owner&) const = default;
  };
  static std::optional<Owner> ownerOf(std::string_view name);

  SaveDirectory(SaveDirectory&& other) noexcept : path_(std::move(other.path_)) { other.path_.clear(); }
  SaveDirectory& operator=(SaveDirectory&&) = delete;
  SaveDirectory(const SaveDirectory&) = delete;
  ~SaveDirectory();

  const std::filesystem::path& path() const { return path_; }

 private:
  explicit SaveDirectory(std::filesystem::path path) : path_(std::move(path)) {}
  std::filesystem::path path_;
};

}  // namespace quorin::persistence
