#include "gen/Output.h"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <limits>

namespace quorin::gen {
namespace {

constexpr size_t kBlockSize = size_t{4} << 20;

std::expected<void, std::string> writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t n = ::write(fd, bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return std::unexpected(std::string(std::strerror(errno)));
    bytes.remove_prefix(static_cast<size_t>(n));
  }
  return {};
}

}  // namespace

std::optional<int64_t> parseSize(std::string_view text) {
  int64_t multiplier = 1;
  if (!text.empty()) {
    switch (text.back()) {
      case 'k':
      case 'K': multiplier = int64_t{1} << 10; break;
      case 'm':
      case 'M': multiplier = int64_t{1} << 20; break;
      case 'g':
      case 'G': multiplier = int64_t{1} << 30; break;
      default: break;
    }
    if (multiplier != 1) text.remove_suffix(1);
  }
  int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc{} || end != text.data() + text.size() || value < 0)
    return std::nullopt;
  if (value > std::numeric_limits<int64_t>::max() / multiplier) return std::nullopt;
  return value * multiplier;
}

std::expected<int64_t, std::string> writeRecords(RecordGenerator& generator, int64_t size, int fd) {
  std::string block;
  block.reserve(kBlockSize + (kBlockSize >> 2));
  int64_t written = 0;
  while (written + static_cast<int64_t>(block.size()) < size) {
    generator.appendRecord(block);
    if (block.size() < kBlockSize) continue;
    if (auto ok = writeAll(fd, block); !ok) return std::unexpected(ok.error());
    written += static_cast<int64_t>(block.size());
    block.clear();
  }
  if (auto ok = writeAll(fd, block); !ok) return std::unexpected(ok.error());
  return written + static_cast<int64_t>(block.size());
}

std::string generate(RecordGenerator& generator, int64_t size) {
  std::string out;
  out.reserve(static_cast<size_t>(size) + 64 * 1024);
  while (static_cast<int64_t>(out.size()) < size) generator.appendRecord(out);
  return out;
}

}  // namespace quorin::gen
