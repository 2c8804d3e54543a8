#include "logs/LogIndexUpdate.h"

#include <algorithm>
#include <cmath>

#include "logs/LogIndexLines.h"
#include "logs/LogIndexScan.h"

namespace quorin::logs::detail {
namespace {

// Blocks shorter than this after an edit are merged with a neighbour.
constexpr int64_t kMergeBelowLines = kLogBlockLines / 4;

bool hasHead(const LogBlock& block) {
  for (uint32_t count : block.messages) {
    if (count > 0) return true;
  }
  return false;
}

// Replaces the alert lines in [fromLine, oldEnd) with `fresh` and moves the
// ones at or after oldEnd by `delta` lines.
void spliceAlerts(std::vector<uint32_t>& lines, int64_t fromLine, int64_t oldEnd, int64_t delta,
                  const std::vector<uint32_t>& fresh) {
  auto position = [&](int64_t line) {
    return line > int64_t{UINT32_MAX}
               ? lines.end()
               : std::lower_bound(lines.begin(), lines.end(), static_cast<uint32_t>(line));
  };
  const auto low = position(fromLine);
  const auto high = position(oldEnd);
  std::vector<uint32_t> result;
  result.reserve(lines.size() + fresh.size());
  result.insert(result.end(), lines.begin(), low);
  result.insert(result.end(), fresh.begin(), fresh.end());
  for (auto it = high; it != lines.end(); ++it) {
    const int64_t moved = int64_t{*it} + delta;
    if (moved > int64_t{UINT32_MAX}) break;
    result.push_back(static_cast<uint32_t>(moved));
  }
  lines = std::move(result);
}

// Replaces blocks [first, last] (old lines [fromLine, oldEnd)) by `run`.
void spliceRun(LogIndexData& data, size_t first, size_t last, int64_t oldEnd, int64_t delta,
               ScanResult&& run) {
  const int64_t fromLine = data.blocks[first].firstLine;
  for (size_t b = first; b <= last; ++b) data.timedLines -= data.blocks[b].timedLines;
  for (const LogBlock& block : run.blocks) data.timedLines += block.timedLines;
  for (size_t slot = 0; slot < data.alertLines.size(); ++slot) {
    spliceAlerts(data.alertLines[slot], fromLine, oldEnd, delta, run.alertLines[slot]);
  }
  const auto at = data.blocks.erase(data.blocks.begin() + static_cast<std::ptrdiff_t>(first),
                                    data.blocks.begin() + static_cast<std::ptrdiff_t>(last) + 1);
  const auto after = data.blocks.insert(at, run.blocks.begin(), run.blocks.end()) +
                     static_cast<std::ptrdiff_t>(run.blocks.size());
  // The message open after the run may have changed: blocks without a head
  // line of their own pass it on.
  Level carried = run.exitLevel;
  for (auto it = after; it != data.blocks.end(); ++it) {
    it->firstLine += delta;
  }
  for (auto it = after; it != data.blocks.end() && it->enteringLevel != carried; ++it) {
    it->enteringLevel = carried;
    if (hasHead(*it)) break;
  }
}

}  // namespace

bool foldEdit(LogIndexData& data, const storage::EditResult& edit, const LogSource& after,
              const SeverityRules& rules) {
  if (!data.complete || !after.lines.isComplete || data.blocks.empty()) return false;
  const int64_t newTotal = coveredLineCount(after);
  const int64_t delta = newTotal - data.linesIndexed;
  const auto firstLine = after.lines.lineContaining(edit.docByteStart);
  const auto newLastLine = after.lines.lineContaining(edit.docByteStart + edit.bytesInserted);
  if (!firstLine || !newLastLine) return false;
  const int64_t oldLastLine = *newLastLine - delta;
  if (oldLastLine < *firstLine || oldLastLine >= data.linesIndexed) return false;
  size_t first = *data.blockOfLine(*firstLine);
  size_t last = *data.blockOfLine(oldLastLine);
  auto oldEnd = [&] { return data.blocks[last].firstLine + data.blocks[last].lineCount; };
  auto newCount = [&] { return oldEnd() - data.blocks[first].firstLine + delta; };
  if (newCount() < kMergeBelowLines) {
    if (last + 1 < data.blocks.size()) {
      ++last;
    } else if (first > 0) {
      --first;
    }
  }
  const int64_t lines = newCount();
  const auto pieces = std::max<int64_t>(1, std::llround(static_cast<double>(lines) / kLogBlockLines));
  const LogBlock& head = data.blocks[first];
  const ScanContext context{.source = &after, .rules = &rules, .format = data.format};
  ScanResult run = scanLines(context, {.firstLine = head.firstLine,
                                       .endLine = head.firstLine + lines,
                                       .blockLines = (lines + pieces - 1) / pieces,
                                       .entering = head.enteringLevel,
                                       .year = head.enteringYear});
  if (!run.complete) return false;
  spliceRun(data, first, last, oldEnd(), delta, std::move(run));
  data.linesIndexed = newTotal;
  data.snapshotVersion = after.text.version();
  return true;
}

bool foldAppend(LogIndexData& data, const LogSource& after, const SeverityRules& rules) {
  const int64_t covered = coveredLineCount(after);
  if (data.blocks.empty() || covered < data.linesIndexed) return false;
  const size_t last = data.blocks.size() - 1;
  const LogBlock& tail = data.blocks[last];
  const ScanContext context{.source = &after, .rules = &rules, .format = data.format};
  ScanResult run = scanLines(context, {.firstLine = tail.firstLine,
                                       .endLine = covered,
                                       .entering = tail.enteringLevel,
                                       .year = tail.enteringYear});
  if (!run.complete || run.blocks.empty()) return false;
  spliceRun(data, last, last, data.linesIndexed, 0, std::move(run));
  data.linesIndexed = covered;
  data.complete = after.lines.isComplete;
  data.snapshotVersion = after.text.version();
  return true;
}

}  // namespace quorin::logs::detail
