#include "logs/LogIndexScan.h"

#include <algorithm>

#include "logs/LogIndexLines.h"
#include "logs/TimestampParser.h"

namespace quorin::logs::detail {
namespace {

constexpr int64_t kDayMicros = 86'400'000'000;
constexpr size_t kFirstAlertSlot = levelSlot(Level::warning);

// Per block while it fills.
struct BlockFill {
  LogBlock block;
  int64_t lastMicros = kNoTime;
};

}  // namespace

bool isYearless(std::optional<TimestampFormat> format) {
  return format == TimestampFormat::syslog || format == TimestampFormat::glog;
}

int64_t shiftYears(int64_t micros, int32_t years) {
  if (years == 0 || micros == kNoTime) return micros;
  int64_t days = micros / kDayMicros;
  int64_t rest = micros % kDayMicros;
  if (rest < 0) {
    rest += kDayMicros;
    --days;
  }
  const CivilDate civil = civilFromDays(days);
  return daysFromCivil(civil.year + years, civil.month, civil.day) * kDayMicros + rest;
}

ScanResult scanLines(const ScanContext& context, const ScanStart& start) {
  ScanResult result;
  const bool timed = context.format.has_value();
  TimestampParser parser(context.format.value_or(TimestampFormat::iso8601), start.year);
  LineWindowReader reader(*context.source);
  Level open = start.entering;
  LogBlock* block = nullptr;
  int64_t blockLast = kNoTime;

  auto visit = [&](int64_t line, std::string_view text) {
    LineTime time;
    const bool hasTime = timed && parser.parseInto(text, time);
    if (hasTime) {
      if (block->firstMicros == kNoTime) block->firstMicros = time.micros;
      if (blockLast != kNoTime && time.micros < blockLast) block->monotonic = false;
      blockLast = time.micros;
      block->maxMicros = std::max(block->maxMicros, time.micros);
      ++block->timedLines;
      if (result.firstMicros == kNoTime) result.firstMicros = time.micros;
      result.lastMicros = time.micros;
    }
    if (!hasTime && timed && line != 0) return;  // a continuation line: its message's level
    open = context.rules->detect(text, hasTime ? static_cast<size_t>(time.end) : 0);
    ++block->messages[levelSlot(open)];
    if (result.firstHeadLine < 0) result.firstHeadLine = line;
    if (open >= Level::warning && line <= int64_t{UINT32_MAX}) {
      result.alertLines[levelSlot(open) - kFirstAlertSlot].push_back(static_cast<uint32_t>(line));
    }
  };

  for (int64_t first = start.firstLine; first < start.endLine; first += start.blockLines) {
    if (context.token && context.token->isCancelled()) return result;
    const int64_t end = std::min(first + start.blockLines, start.endLine);
    block = &result.blocks.emplace_back();
    block->firstLine = first;
    block->lineCount = end - first;
    block->enteringLevel = open;
    block->enteringYear = start.year + parser.yearSteps();
    blockLast = kNoTime;
    if (!reader.forEachLine(first, end, visit)) {
      result.blocks.pop_back();
      return result;
    }
    block->lastMicros = blockLast;
    if (context.linesDone) {
      const int64_t done =
          context.linesDone->fetch_add(end - first, std::memory_order_relaxed) + (end - first);
      if (context.token && context.progressTotal > 0) {
        context.token->setProgress(static_cast<double>(done) / static_cast<double>(context.progressTotal));
      }
    }
  }
  result.exitLevel = open;
  result.yearSteps = parser.yearSteps();
  result.complete = true;
  return result;
}

ScanJoin::ScanJoin(std::optional<TimestampFormat> format, int32_t modificationYear)
    : format_(format), provisionalYear_(modificationYear) {}

void ScanJoin::append(ScanResult&& run) {
  if (run.blocks.empty()) return;
  const bool first = blocks_.empty();
  int32_t offset = yearOffsetAtEnd_;
  if (isYearless(format_) && !first && lastMicros_ != kNoTime && run.firstMicros != kNoTime &&
      shiftYears(run.firstMicros, offset) < lastMicros_ - kDayMicros) {
    ++offset;
  }
  if (run.lastMicros != kNoTime) lastMicros_ = shiftYears(run.lastMicros, offset);
  yearOffsetAtEnd_ = offset + run.yearSteps;

  for (LogBlock& block : run.blocks) {
    // Blocks up to the run's first head line open inside a message that
    // began in an earlier run.
    if (!first && (run.firstHeadLine < 0 || block.firstLine <= run.firstHeadLine))
      block.enteringLevel = carried_;
    timedLines_ += block.timedLines;
    lines_ = block.firstLine + block.lineCount;
    blocks_.push_back(block);
    blockYearOffset_.push_back(offset);
  }
  if (run.firstHeadLine >= 0 || first) carried_ = run.exitLevel;
  for (size_t slot = 0; slot < alertLines_.size(); ++slot) {
    alertLines_[slot].insert(alertLines_[slot].end(), run.alertLines[slot].begin(),
                             run.alertLines[slot].end());
  }
}

LogIndexData ScanJoin::data(int64_t snapshotVersion, uint64_t rulesGeneration, bool complete) const& {
  LogIndexData data;
  data.blocks = blocks_;
  data.alertLines = alertLines_;
  settle(data, snapshotVersion, rulesGeneration, complete);
  return data;
}

LogIndexData ScanJoin::take(int64_t snapshotVersion, uint64_t rulesGeneration, bool complete) && {
  LogIndexData data;
  data.blocks = std::move(blocks_);
  data.alertLines = std::move(alertLines_);
  // The lists grew by doubling; the index keeps them for the document's life.
  data.blocks.shrink_to_fit();
  for (auto& lines : data.alertLines) lines.shrink_to_fit();
  settle(data, snapshotVersion, rulesGeneration, complete);
  return data;
}

void ScanJoin::settle(LogIndexData& data, int64_t snapshotVersion, uint64_t rulesGeneration,
                      bool complete) const {
  data.snapshotVersion = snapshotVersion;
  data.rulesGeneration = rulesGeneration;
  data.format = format_;
  data.firstYear = provisionalYear_ - yearOffsetAtEnd_;
  data.linesIndexed = lines_;
  data.timedLines = timedLines_;
  data.complete = complete;
  // Settle the years: the last line lands in the modification year.
  for (size_t b = 0; b < data.blocks.size(); ++b) {
    const int32_t years = blockYearOffset_[b] - yearOffsetAtEnd_;
    LogBlock& block = data.blocks[b];
    block.enteringYear += years;
    if (years == 0 || !isYearless(format_)) continue;
    block.firstMicros = shiftYears(block.firstMicros, years);
    block.lastMicros = shiftYears(block.lastMicros, years);
    block.maxMicros = shiftYears(block.maxMicros, years);
  }
}

}  // namespace quorin::logs::detail
