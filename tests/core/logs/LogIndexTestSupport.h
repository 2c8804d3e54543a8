#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "logs/LogIndex.h"
#include "logs/TimestampParser.h"
#include "storage/InMemoryLineIndex.h"
#include "storage/StorageTestSupport.h"

namespace quorin::logs {

// A document on disk with its piece table and a complete line index.
struct LogDoc {
  testing::TempDir dir;
  std::shared_ptr<storage::PieceTable> table;
  std::shared_ptr<storage::InMemoryLineIndex> index;

  explicit LogDoc(std::string_view text, storage::LineIndexBuildOptions options = {}, bool wait = true) {
    table = std::make_shared<storage::PieceTable>(testing::bufferOver(dir, text));
    index = storage::InMemoryLineIndex::create(table, storage::LineIndexTier::inMemory(),
                                               storage::LineIndexWindow::wholeDocument(), std::move(options));
    index->startBuild();
    if (wait) index->waitUntilComplete(std::chrono::seconds(30));
  }
  LogSource source() const { return {table->snapshot(), index->snapshot()}; }
  storage::EditResult insert(std::string_view bytes, int64_t offset) {
    auto edit = table->insert(bytes, offset);
    index->apply(edit);
    return edit;
  }
  storage::EditResult erase(int64_t from, int64_t to) {
    auto edit = table->deleteRange({from, to});
    index->apply(edit);
    return edit;
  }
  std::string text() const { return testing::wholeText(*table); }
};

// What the index should say about each line, found the slow way: the text
// split by hand, every line parsed and classified in order.
struct LineFacts {
  int64_t micros = kNoTime;
  bool head = false;
  Level level = Level::none;  // the message's level
};

inline std::vector<std::string_view> splitLines(std::string_view text) {
  std::vector<std::string_view> lines;
  size_t from = 0;
  while (true) {
    const size_t newline = text.find('\n', from);
    if (newline == std::string_view::npos) {
      lines.push_back(text.substr(from));
      return lines;
    }
    lines.push_back(text.substr(from, newline - from));
    from = newline + 1;
  }
}

inline std::vector<LineFacts> referenceFacts(std::string_view text, std::optional<TimestampFormat> format,
                                             const SeverityRules& rules, int32_t modificationYear) {
  const auto lines = splitLines(text);
  int32_t steps = 0;
  if (format) {
    TimestampParser probe(*format, modificationYear);
    for (auto line : lines) probe.parse(line.substr(0, 4096));
    steps = probe.yearSteps();
  }
  TimestampParser parser(format.value_or(TimestampFormat::iso8601), modificationYear - steps);
  std::vector<LineFacts> facts(lines.size());
  Level open = Level::none;
  for (size_t i = 0; i < lines.size(); ++i) {
    const auto line = lines[i].substr(0, 4096);
    const auto time = format ? parser.parse(line) : std::nullopt;
    if (time) facts[i].micros = time->micros;
    facts[i].head = !format || time || i == 0;
    if (facts[i].head) open = rules.detect(line, time ? static_cast<size_t>(time->end) : 0);
    facts[i].level = open;
  }
  return facts;
}

// Checks every block, whatever its bounds, and the alert lists against the facts.
inline void expectMatches(const LogIndexData& data, const std::vector<LineFacts>& facts) {
  ASSERT_EQ(data.linesIndexed, static_cast<int64_t>(facts.size()));
  int64_t next = 0, timed = 0;
  std::array<std::vector<uint32_t>, 4> alerts;
  for (const LogBlock& block : data.blocks) {
    ASSERT_EQ(block.firstLine, next);
    ASSERT_GT(block.lineCount, 0);
    LogBlock want;
    want.enteringLevel = block.firstLine == 0 ? Level::none : facts[block.firstLine - 1].level;
    int64_t last = kNoTime;
    for (int64_t line = block.firstLine; line < block.firstLine + block.lineCount; ++line) {
      const LineFacts& f = facts[line];
      if (f.head) {
        ++want.messages[levelSlot(f.level)];
        if (f.level >= Level::warning) alerts[levelSlot(f.level) - levelSlot(Level::warning)].push_back(line);
      }
      if (f.micros == kNoTime) continue;
      ++want.timedLines;
      if (want.firstMicros == kNoTime) want.firstMicros = f.micros;
      if (last != kNoTime && f.micros < last) want.monotonic = false;
      last = f.micros;
      want.maxMicros = std::max(want.maxMicros, f.micros);
    }
    want.lastMicros = last;
    timed += want.timedLines;
    EXPECT_EQ(block.messages, want.messages) << "block at " << block.firstLine;
    EXPECT_EQ(block.firstMicros, want.firstMicros) << "block at " << block.firstLine;
    EXPECT_EQ(block.lastMicros, want.lastMicros) << "block at " << block.firstLine;
    EXPECT_EQ(block.maxMicros, want.maxMicros) << "block at " << block.firstLine;
    EXPECT_EQ(block.monotonic, want.monotonic) << "block at " << block.firstLine;
    EXPECT_EQ(block.timedLines, want.timedLines) << "block at " << block.firstLine;
    EXPECT_EQ(block.enteringLevel, want.enteringLevel) << "block at " << block.firstLine;
    next += block.lineCount;
  }
  EXPECT_EQ(next, data.linesIndexed);
  EXPECT_EQ(data.timedLines, timed);
  EXPECT_EQ(data.alertLines, alerts);
}

// A log of `lines` lines: ISO timestamps (now and then going back), levels
// in several spellings, stack traces and JSON bodies as continuation lines,
// a preamble before the first timestamp, and an occasional long line.
inline std::string generatedLog(uint32_t seed, int lines) {
  std::mt19937 random(seed);
  static constexpr std::string_view kLevels[] = {"INFO",  "DEBUG", "WARN",   "ERROR",       "info", "FATAL",
                                                 "TRACE", "CRIT",  "NOTICE", "level=error", "hello"};
  std::string text = "preamble without a time\nERROR also preamble\n";
  int64_t second = 0;
  for (int i = 0; i < lines; ++i) {
    const uint32_t pick = random() % 100;
    if (pick < 12) {
      text += "\tat com.example.Thing.method(Thing.java:" + std::to_string(pick) + ") ERROR\n";
      continue;
    }
    if (pick == 12) {
      text += std::string(5000 + random() % 3000, 'x') + "\n";
      continue;
    }
    second += (pick < 15) ? -3600 : static_cast<int64_t>(random() % 3);
    second = std::max<int64_t>(second, 0);
    char stamp[64];
    std::snprintf(stamp, sizeof stamp, "2026-03-%02d %02d:%02d:%02d.%03u ",
                  static_cast<int>(1 + second / 86400 % 28), static_cast<int>(second / 3600 % 24),
                  static_cast<int>(second / 60 % 60), static_cast<int>(second % 60),
                  static_cast<unsigned>(random() % 1000));
    text += stamp;
    text += kLevels[random() % std::size(kLevels)];
    text += " [main] message " + std::to_string(i) + "\n";
  }
  return text;
}

}  // namespace quorin::logs
