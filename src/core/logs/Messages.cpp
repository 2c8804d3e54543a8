#include "logs/Messages.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "logs/LogIndexLines.h"
#include "logs/TimestampParser.h"

namespace quorin::logs {
namespace {

constexpr int64_t kMicrosPerSecond = 1'000'000;
constexpr int64_t kMicrosPerDay = 86'400 * kMicrosPerSecond;
// Lines past the index read back, one by one, before the search goes on
// from the index's last block.
constexpr int64_t kUnindexedReadBack = 2 * kLogBlockLines;
constexpr int64_t kScanSliceLines = 256;

int64_t floorDiv(int64_t a, int64_t b) {
  const int64_t q = a / b;
  return (a % b != 0 && (a < 0) != (b < 0)) ? q - 1 : q;
}

// The last block starting at or before `line`, if any.
std::optional<size_t> blockAtOrBefore(const LogIndexData& data, int64_t line) {
  const auto after = std::upper_bound(data.blocks.begin(), data.blocks.end(), line,
                                      [](int64_t l, const LogBlock& b) { return l < b.firstLine; });
  if (after == data.blocks.begin()) return std::nullopt;
  return static_cast<size_t>(after - data.blocks.begin()) - 1;
}

bool inBlock(const LogBlock& block, int64_t line) {
  return line >= block.firstLine && line < block.firstLine + block.lineCount;
}

// A line's timestamp on its own, as a parser that had just read the line
// above would see it (its format family; the year not stepped).
std::optional<LineTime> parseAlone(TimestampFormat format, std::string_view text, int32_t year) {
  TimestampParser parser(format, year);
  return parser.parse(text);
}

// Reads one block's timestamps in order as the index did: from the year
// the block was entered in, turning the year at the block's first timestamp
// when that lies more than a day before the last one above it (a parser
// started at the block has no earlier line to compare with).
class BlockClock {
 public:
  BlockClock(const LogIndexData& data, size_t index)
      : format_(*data.format), year_(data.blocks[index].enteringYear), parser_(format_, year_) {
    for (size_t b = index; b-- > 0;) {
      if (data.blocks[b].lastMicros != kNoTime) {
        previous_ = data.blocks[b].lastMicros;
        break;
      }
    }
  }

  std::optional<LineTime> parse(std::string_view text) {
    auto time = parser_.parse(text);
    if (time && !seen_) {
      seen_ = true;
      if (!time->hasYear && time->hasDate && previous_ != kNoTime &&
          time->micros < previous_ - kMicrosPerDay) {
        parser_ = TimestampParser(format_, year_ + 1);
        time = parser_.parse(text);
      }
    }
    return time;
  }

 private:
  TimestampFormat format_;
  int32_t year_;
  TimestampParser parser_;
  int64_t previous_ = kNoTime;
  bool seen_ = false;
};

// The time of head `line` as the index reads it: a yearless timestamp
// takes the year its block's parser is in at that line.
LineTime exactTime(const LogIndexData& data, const LogSource& source, int64_t line, const LineTime& alone) {
  if (alone.hasYear || !alone.hasDate || data.blocks.empty()) return alone;
  const size_t index = blockAtOrBefore(data, line).value_or(0);
  const LogBlock& block = data.blocks[index];
  // Past the index the year of its last block holds, read from at most a
  // block above the line.
  const int64_t from =
      inBlock(block, line) ? block.firstLine : std::max(block.firstLine, line - kLogBlockLines);
  BlockClock clock(data, index);
  std::optional<LineTime> time;
  detail::LineWindowReader reader(source);
  reader.forEachLine(from, line + 1, [&](int64_t, std::string_view text) { time = clock.parse(text); });
  return time.value_or(alone);
}

}  // namespace

std::string_view LineHeads::read(int64_t line, size_t maxBytes) {
  if (line < 0) return {};
  const auto start = source_.lines.lineStart(line);
  if (!start) return {};
  const auto next = source_.lines.lineStart(line + 1);
  const int64_t end = next ? *next : source_.text.totalLength();
  const int64_t length = std::min(end - *start, static_cast<int64_t>(maxBytes));
  if (length <= 0) return {};
  buffer_.resize(static_cast<size_t>(length));
  const int64_t copied = source_.text.copyBytes({*start, *start + length}, buffer_.data());
  std::string_view text(reinterpret_cast<const char*>(buffer_.data()), static_cast<size_t>(copied));
  // A stale or still-building line index may not know where the line ends.
  if (const void* newline = std::memchr(text.data(), '\n', text.size()))
    text = text.substr(0, static_cast<size_t>(static_cast<const char*>(newline) - text.data()));
  if (!text.empty() && text.back() == '\r') text.remove_suffix(1);
  return text;
}

std::optional<HeadLine> headAtOrAbove(const LogIndexData& data, LineHeads& lines, int64_t line) {
  if (!data.format) return std::nullopt;
  const TimestampFormat format = *data.format;
  int64_t l = std::min(line, lines.lineCount() - 1);
  int64_t unindexedBudget = kUnindexedReadBack;
  while (l >= 0) {
    const auto index = blockAtOrBefore(data, l);
    if (!index) return std::nullopt;
    const LogBlock& block = data.blocks[*index];
    if (!inBlock(block, l)) {
      if (unindexedBudget-- <= 0) {
        l = block.firstLine + block.lineCount - 1;
        continue;
      }
      if (auto time = parseAlone(format, lines.read(l), data.firstYear))
        return HeadLine{l, exactTime(data, lines.source(), l, *time)};
      --l;
      continue;
    }
    if (block.firstMicros != kNoTime) {
      for (; l >= block.firstLine; --l) {
        if (auto time = parseAlone(format, lines.read(l), block.enteringYear))
          return HeadLine{l, exactTime(data, lines.source(), l, *time)};
      }
    }
    l = block.firstLine - 1;
  }
  return std::nullopt;
}

// Every block before the first one whose largest time reaches `micros`
// lies wholly before it, so that block holds the answer: the first pass
// over the blocks is the search, and one block is read.
std::optional<HeadLine> firstHeadAtOrAfter(const LogIndexData& data, const LogSource& source,
                                           int64_t micros) {
  if (!data.format) return std::nullopt;
  detail::LineWindowReader reader(source);
  for (size_t index = 0; index < data.blocks.size(); ++index) {
    const LogBlock& block = data.blocks[index];
    if (block.maxMicros == kNoTime || block.maxMicros < micros) continue;
    BlockClock clock(data, index);
    std::optional<HeadLine> found;
    const int64_t end = block.firstLine + block.lineCount;
    // In slices, so that an answer near the block's start reads little.
    for (int64_t from = block.firstLine; from < end && !found; from += kScanSliceLines) {
      const bool read = reader.forEachLine(from, std::min(from + kScanSliceLines, end),
                                           [&](int64_t line, std::string_view text) {
                                             if (found) return;
                                             const auto time = clock.parse(text);
                                             if (time && time->micros >= micros)
                                               found = HeadLine{line, *time};
                                           });
      if (!read) break;
    }
    if (found) return found;
  }
  return std::nullopt;
}

std::string formatLineTime(const LineTime& time) {
  const int64_t wall = time.micros + int64_t{time.offsetSeconds} * kMicrosPerSecond;
  const int64_t days = floorDiv(wall, kMicrosPerDay);
  const int64_t inDay = wall - days * kMicrosPerDay;
  const int64_t seconds = inDay / kMicrosPerSecond, fraction = inDay % kMicrosPerSecond;
  char buffer[64];
  int n = 0;
  if (time.hasDate) {
    const CivilDate c = civilFromDays(days);
    n = std::snprintf(buffer, sizeof buffer, "%04lld-%02d-%02d ", static_cast<long long>(c.year), c.month,
                      c.day);
  }
  n += std::snprintf(buffer + n, sizeof buffer - static_cast<size_t>(n), "%02lld:%02lld:%02lld",
                     static_cast<long long>(seconds / 3600), static_cast<long long>(seconds / 60 % 60),
                     static_cast<long long>(seconds % 60));
  if (fraction % 1000 != 0)
    std::snprintf(buffer + n, sizeof buffer - static_cast<size_t>(n), ".%06lld",
                  static_cast<long long>(fraction));
  else if (fraction != 0)
    std::snprintf(buffer + n, sizeof buffer - static_cast<size_t>(n), ".%03lld",
                  static_cast<long long>(fraction / 1000));
  return buffer;
}

std::string formatDuration(int64_t micros) {
  const char* sign = micros < 0 ? "-" : "+";
  // Spans this large are far past any calendar; clamp rather than overflow.
  const long long m = micros == INT64_MIN ? INT64_MAX : std::llabs(micros);
  char buffer[64];
  if (m < 1000) {
    std::snprintf(buffer, sizeof buffer, "%s%lld µs", sign, m);
  } else if (m < kMicrosPerSecond) {
    std::snprintf(buffer, sizeof buffer, "%s%lld ms", sign, m / 1000);
  } else if (m < 60 * kMicrosPerSecond) {
    // Up to three decimals, trailing zeros dropped: "1.25 s", "3 s".
    int len = std::snprintf(buffer, sizeof buffer, "%s%lld.%03lld", sign, m / kMicrosPerSecond,
                            m % kMicrosPerSecond / 1000);
    while (buffer[len - 1] == '0') --len;
    if (buffer[len - 1] == '.') --len;
    std::snprintf(buffer + len, sizeof buffer - static_cast<size_t>(len), " s");
  } else {
    const long long s = m / kMicrosPerSecond;
    if (s < 3600)
      std::snprintf(buffer, sizeof buffer, "%s%lld min %lld s", sign, s / 60, s % 60);
    else if (s < 86'400)
      std::snprintf(buffer, sizeof buffer, "%s%lld h %lld min", sign, s / 3600, s / 60 % 60);
    else
      std::snprintf(buffer, sizeof buffer, "%s%lld d %lld h", sign, s / 86'400, s / 3600 % 24);
  }
  return buffer;
}

}  // namespace quorin::logs
