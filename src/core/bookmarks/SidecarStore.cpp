#include "bookmarks/SidecarStore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <system_error>
#include <vector>

#include "base/Log.h"
#include "base/Sha256.h"
#include "base/UniqueFd.h"

namespace quorin::bookmarks {
namespace {

namespace fs = std::filesystem;

constexpr size_t kHeadBytes = 4096;

std::string headHash(int fd) {
  std::string head(kHeadBytes, '\0');
  size_t got = 0;
  while (got < head.size()) {
    const ssize_t n = ::pread(fd, head.data() + got, head.size() - got, static_cast<off_t>(got));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    got += static_cast<size_t>(n);
  }
  head.resize(got);
  return base::sha256Hex(head);
}

std::string prefixOf(const SidecarFile& file) {
  return std::to_string(file.device) + "-" + std::to_string(file.inode) + "-";
}

std::string pathTag(const std::string& path) { return base::sha256Hex(path).substr(0, 16); }

int64_t nanosSinceEpoch(std::chrono::system_clock::time_point t) {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(t.time_since_epoch()).count();
}

}  // namespace

std::optional<SidecarFile> describeFile(const std::string& path) {
  base::UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat st;
  if (!fd.valid() || ::fstat(fd.get(), &st) != 0) return std::nullopt;
  std::error_code ec;
  const fs::path absolute = fs::absolute(path, ec);
  return SidecarFile{.path = ec ? path : absolute.lexically_normal().string(),
                     .device = static_cast<uint64_t>(st.st_dev),
                     .inode = static_cast<uint64_t>(st.st_ino),
                     .size = static_cast<int64_t>(st.st_size),
                     .modifiedNanos = int64_t{st.st_mtim.tv_sec} * 1'000'000'000 + st.st_mtim.tv_nsec,
                     .headSha256 = headHash(fd.get())};
}

std::expected<fs::path, std::string> SidecarStore::defaultDirectory() {
  const char* xdg = std::getenv("XDG_DATA_HOME");
  if (xdg != nullptr && xdg[0] == '/') return fs::path(xdg) / "Quorin" / "sidecars";
  const char* home = std::getenv("HOME");
  if (home == nullptr || home[0] == '\0') return std::unexpected("no home directory for bookmarks");
  return fs::path(home) / ".local" / "share" / "Quorin" / "sidecars";
}

std::string SidecarStore::fileName(const SidecarFile& file) {
  return prefixOf(file) + pathTag(file.path) + ".json";
}

std::optional<Sidecar> SidecarStore::read(const fs::path& path) const {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::ostringstream bytes;
  bytes << in.rdbuf();
  auto sidecar = sidecarFromJson(bytes.str());
  if (sidecar) return std::move(*sidecar);
  // Set aside, not deleted: it may be a newer program's, or worth a look.
  std::error_code ec;
  fs::create_directories(directory_ / "corrupt", ec);
  fs::rename(path, directory_ / "corrupt" / path.filename(), ec);
  base::logLine("sidecar " + path.string() + " set aside: " + sidecar.error().describe());
  return std::nullopt;
}

std::optional<FoundSidecar> SidecarStore::find(const SidecarFile& file) const {
  std::error_code ec;
  std::vector<fs::path> byInode, byPath, others;
  const std::string prefix = prefixOf(file);
  // Appended piece by piece: g++ 12 warns falsely (-Wrestrict) on "-" + tag + ".json".
  std::string suffix = "-";
  suffix += pathTag(file.path);
  suffix += ".json";
  for (const auto& entry : fs::directory_iterator(directory_, ec)) {
    const std::string name = entry.path().filename().string();
    if (!entry.is_regular_file(ec) || !name.ends_with(".json")) continue;
    if (name.starts_with(prefix)) {
      byInode.push_back(entry.path());
    } else if (name.ends_with(suffix)) {
      byPath.push_back(entry.path());
    } else {
      others.push_back(entry.path());
    }
  }
  const auto sameHead = [&](const Sidecar& s) {
    return !file.headSha256.empty() && s.file.headSha256 == file.headSha256;
  };
  const auto found = [&](Sidecar s, const fs::path& at) {
    const bool unchanged = s.file.size == file.size && s.file.modifiedNanos == file.modifiedNanos &&
                           s.file.device == file.device && s.file.inode == file.inode;
    return FoundSidecar{std::move(s), at, unchanged};
  };
  const std::vector<fs::path>* groups[] = {&byInode, &byPath, &others};
  for (int group = 0; group < 3; ++group) {
    for (const fs::path& at : *groups[group]) {
      auto sidecar = read(at);
      if (!sidecar) continue;
      const bool match = group == 0 ? sidecar->file.device == file.device && sidecar->file.inode == file.inode
                         : group == 1 ? sidecar->file.path == file.path
                                      : sameHead(*sidecar);
      if (!match) continue;
      return found(std::move(*sidecar), at);
    }
  }
  return std::nullopt;
}

std::expected<void, persistence::SmallFileError> SidecarStore::write(const Sidecar& sidecar,
                                                                     const fs::path& replacing) {
  std::error_code ec;
  fs::create_directories(directory_, ec);
  if (ec) return std::unexpected(persistence::SmallFileError{"mkdir", directory_.string(), ec.value()});
  const fs::path target = directory_ / fileName(sidecar.file);
  Sidecar stamped = sidecar;
  stamped.writtenNanos = nanosSinceEpoch(std::chrono::system_clock::now());
  if (auto written = persistence::writeFileAtomically(target, sidecarToJson(stamped)); !written) {
    return std::unexpected(written.error());
  }
  if (!replacing.empty() && replacing != target) fs::remove(replacing, ec);
  return {};
}

int SidecarStore::prune(std::chrono::system_clock::time_point now, std::chrono::hours age) {
  std::error_code ec;
  std::vector<fs::path> gone;
  for (const auto& entry : fs::directory_iterator(directory_, ec)) {
    if (!entry.is_regular_file(ec) || entry.path().extension() != ".json") continue;
    const auto sidecar = read(entry.path());
    if (!sidecar) continue;
    const bool old = sidecar->writtenNanos <= nanosSinceEpoch(now - age);
    if (old && !fs::exists(sidecar->file.path, ec)) gone.push_back(entry.path());
  }
  for (const fs::path& path : gone) fs::remove(path, ec);
  return static_cast<int>(gone.size());
}

}  // namespace quorin::bookmarks
