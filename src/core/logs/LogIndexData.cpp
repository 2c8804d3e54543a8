#include "logs/LogIndexData.h"

#include <algorithm>
#include <cmath>

namespace quorin::logs {
namespace {

constexpr size_t kFirstAlertSlot = levelSlot(Level::warning);

// Entries of an ascending alert list in [fromLine, toLine).
int64_t countBetween(const std::vector<uint32_t>& lines, int64_t fromLine, int64_t toLine) {
  auto lower = [&](int64_t line) {
    if (line <= 0) return lines.begin();
    if (line > int64_t{UINT32_MAX}) return lines.end();
    return std::lower_bound(lines.begin(), lines.end(), static_cast<uint32_t>(line));
  };
  return static_cast<int64_t>(lower(toLine) - lower(fromLine));
}

}  // namespace

std::optional<size_t> LogIndexData::blockOfLine(int64_t line) const {
  if (line < 0 || line >= linesIndexed || blocks.empty()) return std::nullopt;
  const auto after = std::upper_bound(blocks.begin(), blocks.end(), line,
                                      [](int64_t l, const LogBlock& block) { return l < block.firstLine; });
  if (after == blocks.begin()) return std::nullopt;
  return static_cast<size_t>(after - blocks.begin()) - 1;
}

std::array<int64_t, kLevelCount> LogIndexData::messageCounts(int64_t fromLine, int64_t toLine) const {
  std::array<int64_t, kLevelCount> counts{};
  fromLine = std::max<int64_t>(fromLine, 0);
  toLine = std::min(toLine, linesIndexed);
  if (fromLine >= toLine) return counts;
  const size_t first = blockOfLine(fromLine).value_or(0);
  for (size_t b = first; b < blocks.size() && blocks[b].firstLine < toLine; ++b) {
    const LogBlock& block = blocks[b];
    const int64_t blockEnd = block.firstLine + block.lineCount;
    const int64_t low = std::max(fromLine, block.firstLine);
    const int64_t high = std::min(toLine, blockEnd);
    if (low >= high) continue;
    const bool whole = low == block.firstLine && high == blockEnd;
    for (size_t slot = 0; slot < kLevelCount; ++slot) {
      if (whole) {
        counts[slot] += block.messages[slot];
      } else if (slot >= kFirstAlertSlot) {
        counts[slot] += countBetween(alertLines[slot - kFirstAlertSlot], low, high);
      } else if (block.lineCount > 0) {
        const double share = static_cast<double>(high - low) / static_cast<double>(block.lineCount);
        counts[slot] += std::llround(block.messages[slot] * share);
      }
    }
  }
  return counts;
}

std::optional<int64_t> LogIndexData::nextAlert(int64_t line, Level atLeast) const {
  if (atLeast < Level::warning) return std::nullopt;
  std::optional<int64_t> best;
  for (size_t slot = levelSlot(atLeast); slot < kLevelCount; ++slot) {
    const auto& lines = alertLines[slot - kFirstAlertSlot];
    auto it = line < 0 ? lines.begin()
                       : (line >= int64_t{UINT32_MAX}
                              ? lines.end()
                              : std::upper_bound(lines.begin(), lines.end(), static_cast<uint32_t>(line)));
    if (it != lines.end() && (!best || *it < *best)) best = *it;
  }
  return best;
}

std::optional<int64_t> LogIndexData::previousAlert(int64_t line, Level atLeast) const {
  if (atLeast < Level::warning || line <= 0) return std::nullopt;
  std::optional<int64_t> best;
  for (size_t slot = levelSlot(atLeast); slot < kLevelCount; ++slot) {
    const auto& lines = alertLines[slot - kFirstAlertSlot];
    auto it = line > int64_t{UINT32_MAX}
                  ? lines.end()
                  : std::lower_bound(lines.begin(), lines.end(), static_cast<uint32_t>(line));
    if (it != lines.begin() && (!best || *std::prev(it) > *best)) best = *std::prev(it);
  }
  return best;
}

}  // namespace quorin::logs
