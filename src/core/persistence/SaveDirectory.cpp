#include "persistence/SaveDirectory.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <vector>

namespace quorin::persistence {
namespace {

constexpr size_t kRandomSuffix = 7;  // "-XXXXXX"

const std::string& thisHost() {
  static const std::string host = [] {
    char name[256] = {};
    if (::gethostname(name, sizeof name - 1) != 0) return std::string("localhost");
    std::string h(name);
    for (char& c : h) {
      if (c == '/') c = '_';
    }
    return h;
  }();
  return host;
}

// A process we may not signal still runs; only "no such process" means gone.
bool processRuns(long pid) { return pid <= 0 || ::kill(static_cast<pid_t>(pid), 0) == 0 || errno != ESRCH; }

}  // namespace

std::optional<SaveDirectory::Owner> SaveDirectory::ownerOf(std::string_view name) {
  if (!name.starts_with(kPrefix) || name.size() < kPrefix.size() + kRandomSuffix) return std::nullopt;
  std::string_view rest = name.substr(kPrefix.size(), name.size() - kPrefix.size() - kRandomSuffix);
  if (name[name.size() - kRandomSuffix] != '-') return std::nullopt;
  const size_t at = rest.find('@');
  if (at == std::string_view::npos || at == 0 || at + 1 == rest.size()) return std::nullopt;
  Owner owner;
  const auto [end, ec] = std::from_chars(rest.data(), rest.data() + at, owner.pid);
  if (ec != std::errc() || end != rest.data() + at) return std::nullopt;
  owner.host = std::string(rest.substr(at + 1));
  return owner;
}

std::expected<SaveDirectory, int> SaveDirectory::create(const std::filesystem::path& parent) {
  std::string pattern =
      (parent / (std::string(kPrefix) + std::to_string(::getpid()) + "@" + thisHost() + "-XXXXXX")).string();
  if (::mkdtemp(pattern.data()) == nullptr) return std::unexpected(errno);
  return SaveDirectory(pattern);
}

SaveDirectory::~SaveDirectory() {
  if (path_.empty()) return;
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

void removeAbandonedSaveDirectories(const std::filesystem::path& directory) {
  std::vector<std::filesystem::path> abandoned;
  std::error_code ec;
  for (std::filesystem::directory_iterator it(directory, ec), end; !ec && it != end; it.increment(ec)) {
    const auto owner = SaveDirectory::ownerOf(it->path().filename().string());
    if (!owner || owner->host != thisHost() || processRuns(owner->pid)) continue;
    std::error_code typeError;
    if (it->symlink_status(typeError).type() != std::filesystem::file_type::directory) continue;
    abandoned.push_back(it->path());
  }
  for (const auto& path : abandoned) {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
}

}  // namespace quorin::persistence
