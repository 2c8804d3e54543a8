#include "app/LogSteps.h"

#include "logs/Messages.h"
#include "logs/TimestampParser.h"

namespace quorin::app {
namespace {

bool blockHolds(const logs::LogBlock& block, logs::Level atLeast) {
  for (size_t slot = logs::levelSlot(atLeast); slot < logs::kLevelCount; ++slot)
    if (block.messages[slot] > 0) return true;
  return false;
}

// The level of `line` when it starts a message (it has a timestamp, or the
// document has none); none for a continuation line.
std::optional<logs::Level> headLevel(const logs::LogIndexData& data, logs::LineHeads& heads,
                                     const logs::SeverityRules& rules, int64_t line, int32_t year) {
  const std::string_view text = heads.read(line, logs::kUserRuleWindowBytes);
  size_t timestampEnd = 0;
  if (data.format) {
    logs::TimestampParser parser(*data.format, year);
    const auto time = parser.parse(text);
    if (!time) return std::nullopt;
    timestampEnd = static_cast<size_t>(time->end);
  }
  return rules.detect(text, timestampEnd);
}

}  // namespace

std::optional<int64_t> stepToLevel(const logs::LogIndexData& data, const logs::LogSource& source,
                                   const logs::SeverityRules& rules, int64_t line, logs::Level atLeast,
                                   bool forward) {
  if (atLeast >= logs::Level::warning)
    return forward ? data.nextAlert(line, atLeast) : data.previousAlert(line, atLeast);
  if (data.blocks.empty()) return std::nullopt;
  logs::LineHeads heads(source);
  const int64_t from = forward ? line + 1 : line - 1;
  const int64_t last = std::min(data.linesIndexed, heads.lineCount()) - 1;
  if (from < 0 || from > last) return std::nullopt;
  const auto start = data.blockOfLine(from);
  if (!start) return std::nullopt;
  for (auto b = static_cast<int64_t>(*start); b >= 0 && b < static_cast<int64_t>(data.blocks.size());
       b += forward ? 1 : -1) {
    const logs::LogBlock& block = data.blocks[static_cast<size_t>(b)];
    if (!blockHolds(block, atLeast)) continue;
    const int64_t low = std::max(block.firstLine, forward ? from : int64_t{0});
    const int64_t high = std::min({block.firstLine + block.lineCount - 1, last, forward ? last : from});
    for (int64_t l = forward ? low : high; l >= low && l <= high; l += forward ? 1 : -1) {
      const auto level = headLevel(data, heads, rules, l, block.enteringYear);
      if (level && *level >= atLeast) return l;
    }
  }
  return std::nullopt;
}

}  // namespace quorin::app
