#include "persistence/AvailableMemoryProvider.h"

#include <array>
#include <charconv>
#include <fstream>
#include <sstream>

namespace quorin::persistence {

int64_t reclaimableFromMeminfo(std::string_view meminfo) {
  static constexpr std::array<std::string_view, 4> kFields = {
      "MemFree:", "Active(file):", "Inactive(file):", "SReclaimable:"};
  int64_t totalKiB = 0;
  size_t lineStart = 0;
  while (lineStart < meminfo.size()) {
    size_t lineEnd = meminfo.find('\n', lineStart);
    if (lineEnd == std::string_view::npos) lineEnd = meminfo.size();
    const std::string_view line = meminfo.substr(lineStart, lineEnd - lineStart);
    lineStart = lineEnd + 1;
    for (std::string_view field : kFields) {
      if (!line.starts_with(field)) continue;
      std::string_view rest = line.substr(field.size());
      rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
      int64_t kib = 0;
      if (std::from_chars(rest.data(), rest.data() + rest.size(), kib).ec == std::errc()) totalKiB += kib;
    }
  }
  return totalKiB * 1024;
}

int64_t HostStatisticsMemoryProvider::availableBytes() const {
  std::ifstream in("/proc/meminfo");
  if (!in) return 0;
  std::ostringstream text;
  text << in.rdbuf();
  return reclaimableFromMeminfo(text.str());
}

}  // namespace quorin::persistence
