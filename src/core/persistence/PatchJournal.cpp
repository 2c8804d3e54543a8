#include "persistence/PatchJournal.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>

#include "base/Check.h"
#include "base/Errno.h"
#include "storage/ScratchDirectory.h"

namespace quorin::persistence {
namespace {

constexpr std::string_view kMagic = "QRPJ";

void putU32(std::string& out, uint32_t v) {
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
}

void putU64(std::string& out, uint64_t v) {
  for (int i = 0; i < 8; ++i) out.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
}

uint32_t checkedU32(size_t n) {
  QUORIN_CHECK(n <= UINT32_MAX, "patch journal field does not fit in 32 bits");
  return static_cast<uint32_t>(n);
}

// A random (version 4) UUID in the usual upper-case form.
std::string freshUuid() {
  uint8_t b[16] = {};
  size_t got = 0;
  while (got < sizeof b) {
    const ssize_t n = ::getrandom(b + got, sizeof b - got, 0);
    QUORIN_CHECK(n > 0 || errno == EINTR, "getrandom failed");
    if (n > 0) got += static_cast<size_t>(n);
  }
  b[6] = static_cast<uint8_t>((b[6] & 0x0F) | 0x40);
  b[8] = static_cast<uint8_t>((b[8] & 0x3F) | 0x80);
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (int i = 0; i < 16; ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) out.push_back('-');
    out.push_back(kHex[b[i] >> 4]);
    out.push_back(kHex[b[i] & 0xF]);
  }
  return out;
}

bool isValidUtf8(std::string_view s) {
  size_t i = 0;
  while (i < s.size()) {
    const auto c = static_cast<uint8_t>(s[i]);
    size_t len = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
    if (len == 0 || i + len > s.size() || (len == 2 && c < 0xC2) || (len == 4 && c > 0xF4)) return false;
    uint32_t cp = c & (0xFF >> (len + 1));
    for (size_t k = 1; k < len; ++k) {
      const auto cc = static_cast<uint8_t>(s[i + k]);
      if ((cc >> 6) != 2) return false;
      cp = (cp << 6) | (cc & 0x3F);
    }
    if ((len == 3 && (cp < 0x800 || (cp >= 0xD800 && cp <= 0xDFFF))) ||
        (len == 4 && (cp < 0x10000 || cp > 0x10FFFF)))
      return false;
    i += len;
  }
  return true;
}

// Reads little-endian fields off the front of the image; any read past the
// end is a truncated journal.
class Reader {
 public:
  explicit Reader(std::string_view bytes) : bytes_(bytes) {}
  bool u32(uint32_t& v) { return integer(v, 4); }
  bool u64(uint64_t& v) { return integer(v, 8); }
  bool run(size_t n, std::string& out) {
    if (bytes_.size() - at_ < n) return false;
    out.assign(bytes_.substr(at_, n));
    at_ += n;
    return true;
  }

 private:
  template <class T>
  bool integer(T& v, size_t n) {
    if (bytes_.size() - at_ < n) return false;
    v = 0;
    for (size_t i = 0; i < n; ++i) v |= static_cast<T>(static_cast<uint8_t>(bytes_[at_ + i])) << (8 * i);
    at_ += n;
    return true;
  }
  std::string_view bytes_;
  size_t at_ = 0;
};

}  // namespace

std::string PatchJournal::encode(const std::string& targetPath, const storage::FileIdentity& id,
                                 std::span<const Entry> entries) {
  size_t capacity = 64 + targetPath.size();
  for (const Entry& e : entries) capacity += 12 + e.originalBytes.size() + 4 + e.insertedBytes.size();
  std::string out;
  out.reserve(capacity);
  out.append(kMagic);
  putU32(out, kVersion);
  putU32(out, checkedU32(targetPath.size()));
  out.append(targetPath);
  putU64(out, id.device);
  putU64(out, id.inode);
  putU64(out, static_cast<uint64_t>(id.size));
  putU64(out, static_cast<uint64_t>(id.mtimeSeconds));
  putU64(out, static_cast<uint64_t>(id.mtimeNanoseconds));
  putU32(out, checkedU32(entries.size()));
  for (const Entry& e : entries) {
    putU64(out, e.fileOffset);
    putU32(out, checkedU32(e.originalBytes.size()));
    out.append(e.originalBytes);
    putU32(out, checkedU32(e.insertedBytes.size()));
    out.append(e.insertedBytes);
  }
  return out;
}

std::expected<PatchJournal::ParsedJournal, PatchJournalError> PatchJournal::decode(
    std::string_view bytes, const std::filesystem::path& url) {
  const auto truncated = std::unexpected(PatchJournalError::truncated(url));
  Reader r(bytes);
  std::string magic;
  if (!r.run(4, magic)) return truncated;
  if (magic != kMagic) return std::unexpected(PatchJournalError::badMagic(url));
  uint32_t version = 0;
  if (!r.u32(version)) return truncated;
  if (version != kVersion) return std::unexpected(PatchJournalError::unsupportedVersion(url, version));
  ParsedJournal journal;
  journal.url = url;
  uint32_t pathLength = 0;
  if (!r.u32(pathLength) || !r.run(pathLength, journal.targetPath)) return truncated;
  // A NUL would make open() act on a shorter path than the one recorded.
  if (!isValidUtf8(journal.targetPath) || journal.targetPath.find('\0') != std::string::npos)
    return std::unexpected(PatchJournalError::badPathEncoding(url));
  uint64_t size = 0, seconds = 0, nanos = 0;
  if (!r.u64(journal.identity.device) || !r.u64(journal.identity.inode) || !r.u64(size) || !r.u64(seconds) ||
      !r.u64(nanos)) {
    return truncated;
  }
  journal.identity.size = static_cast<int64_t>(size);
  journal.identity.mtimeSeconds = static_cast<int64_t>(seconds);
  journal.identity.mtimeNanoseconds = static_cast<int64_t>(nanos);
  uint32_t count = 0;
  if (!r.u32(count)) return truncated;
  // Never trust a count for a reservation: a corrupt one would ask for gigabytes.
  for (uint32_t i = 0; i < count; ++i) {
    Entry e;
    uint32_t length = 0;
    if (!r.u64(e.fileOffset) || !r.u32(length) || !r.run(length, e.originalBytes) || !r.u32(length) ||
        !r.run(length, e.insertedBytes)) {
      return truncated;
    }
    // Images of different lengths cannot come from an in-place save, and a
    // rollback from them would shift the file: the journal is corrupt.
    if (e.originalBytes.size() != e.insertedBytes.size()) return truncated;
    journal.entries.push_back(std::move(e));
  }
  return journal;
}

std::expected<PatchJournal::Written, PatchJournalError> PatchJournal::write(
    const std::string& targetPath, const storage::FileIdentity& identity, std::span<const Entry> entries,
    FileIo& io, std::optional<std::filesystem::path> directory) {
  if (!directory) {
    auto root = storage::ScratchDirectory::root();
    if (!root) return std::unexpected(PatchJournalError::openFailed(root.error(), ENOENT));
    directory = *root;
  }
  std::error_code ignored;
  std::filesystem::create_directories(*directory, ignored);
  const std::string image = encode(targetPath, identity, entries);
  const std::filesystem::path url = *directory / (freshUuid() + std::string(kNameSuffix));

  base::UniqueFd fd = openFd(io, url.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
  if (!fd) return std::unexpected(PatchJournalError::openFailed(url.string(), errno));
  auto fail = [&](PatchJournalError error) {
    ::unlink(url.c_str());  // half a journal protects nothing and must not be offered at launch
    return std::unexpected(std::move(error));
  };
  // Locked before the first byte: a recovery that got in between finds an
  // empty file, which it cannot read and therefore leaves alone. Never
  // waited for: a save that cannot lock its journal at once falls back to
  // the rewrite (reported as the open that did not give a usable journal).
  if (io.flock(fd.get(), LOCK_EX | LOCK_NB) != 0)
    return fail(PatchJournalError::openFailed(url.string(), errno));
  if (const auto t = writeAll(io, fd.get(), image); !t.complete())
    return fail(PatchJournalError::writeFailed(t.error));
  if (durableFlush(io, fd.get()) != 0) return fail(PatchJournalError::fsyncFailed(errno));
  // The journal's name must survive a crash too.
  flushDirectory(io, directory->c_str());
  return Written{url, Lock(std::move(fd))};
}

std::expected<PatchJournal::Lock, PatchJournal::LockFailure> PatchJournal::lock(
    const std::filesystem::path& url, FileIo& io) {
  using K = LockFailure::Kind;
  base::UniqueFd fd = openFd(io, url.c_str(), O_RDONLY | O_NOFOLLOW);
  if (!fd) return std::unexpected(LockFailure{errno == ENOENT ? K::gone : K::failed, errno});
  if (io.flock(fd.get(), LOCK_EX | LOCK_NB) != 0)
    return std::unexpected(LockFailure{errno == EWOULDBLOCK ? K::inUse : K::failed, errno});
  // A save removes its journal before it lets go of the lock: the name may
  // now be gone, and the descriptor hold a file nobody will look at again.
  struct stat held, named;
  if (io.fstat(fd.get(), &held) != 0) return std::unexpected(LockFailure{K::failed, errno});
  if (::stat(url.c_str(), &named) != 0 || named.st_ino != held.st_ino || named.st_dev != held.st_dev)
    return std::unexpected(LockFailure{K::gone, 0});
  return Lock(std::move(fd));
}

std::string PatchJournal::LockFailure::describe() const {
  switch (kind) {
    case Kind::inUse: return "in use by a running save";
    case Kind::gone: return "already removed by its save";
    case Kind::failed: return "cannot be locked: " + base::errnoText(err);
  }
  return {};
}

void PatchJournal::remove(const std::filesystem::path& url) {
  std::error_code ignored;
  std::filesystem::remove(url, ignored);
}

std::expected<PatchJournal::ParsedJournal, PatchJournalError> PatchJournal::read(
    const std::filesystem::path& url) {
  std::ifstream in(url, std::ios::binary);
  if (!in) return std::unexpected(PatchJournalError::openFailed(url.string(), errno));
  const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  return decode(bytes, url);
}

std::vector<std::filesystem::path> PatchJournal::listPending(std::optional<std::filesystem::path> directory) {
  if (!directory) {
    auto root = storage::ScratchDirectory::root();
    if (!root) return {};
    directory = *root;
  }
  std::vector<std::filesystem::path> found;
  std::error_code ec;
  for (const auto& item : std::filesystem::directory_iterator(*directory, ec)) {
    const std::string name = item.path().filename().string();
    if (name.size() > kNameSuffix.size() && name.ends_with(kNameSuffix) && item.is_regular_file(ec)) {
      found.push_back(item.path());
    }
  }
  std::sort(found.begin(), found.end());
  return found;
}

}  // namespace quorin::persistence
