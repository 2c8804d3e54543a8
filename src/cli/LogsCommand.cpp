#include "LogsCommand.h"

#include <array>
#include <charconv>
#include <cstdio>

#include "Cli.h"
#include "Interrupt.h"
#include "Json.h"
#include "LogsFile.h"
#include "Options.h"
#include "logs/LogIndexLines.h"
#include "logs/LogPictures.h"
#include "logs/Messages.h"
#include "logs/TimestampParser.h"

namespace quorin::cli {
namespace {

constexpr int kMostBuckets = 10'000;
constexpr int64_t kPassSliceLines = 64 * 1024;
// Levels from the most severe down, as a reader scans them.
constexpr std::array kLevelsShown = {logs::Level::fatal,   logs::Level::critical, logs::Level::error,
                                     logs::Level::warning, logs::Level::notice,   logs::Level::info,
                                     logs::Level::debug,   logs::Level::trace,    logs::Level::none};

// "none" for messages without a level, which the core leaves unnamed.
std::string levelName(logs::Level level) {
  return level == logs::Level::none ? "none" : std::string(logs::name(level));
}

struct Summary {
  std::optional<logs::LineTime> first, last;
  std::array<int64_t, logs::kLevelCount> levels{};
  int64_t messages = 0;
  int64_t multilineMessages = 0;
};

// Messages that have at least one continuation line: the index counts
// messages, not their lengths, so this is one more pass over the lines.
int64_t countMultilineMessages(const logs::LogIndexData& data, const logs::LogSource& source) {
  if (!data.format) return 0;
  logs::TimestampParser parser(*data.format, data.firstYear);
  logs::detail::LineWindowReader reader(source);
  logs::LineTime time;
  int64_t count = 0;
  bool counted = true;
  for (int64_t from = 0; from < data.linesIndexed && !interruptRequested(); from += kPassSliceLines) {
    const int64_t to = std::min(from + kPassSliceLines, data.linesIndexed);
    const bool read = reader.forEachLine(from, to, [&](int64_t line, std::string_view text) {
      if (parser.parseInto(text, time) || line == 0) {
        counted = false;
      } else if (!counted) {
        ++count;
        counted = true;
      }
    });
    if (!read) break;
  }
  return count;
}

Summary summarize(const logs::LogIndexData& data, const logs::LogSource& source) {
  Summary s;
  for (const logs::LogBlock& block : data.blocks) {
    for (size_t slot = 0; slot < logs::kLevelCount; ++slot) s.levels[slot] += block.messages[slot];
  }
  for (const int64_t count : s.levels) s.messages += count;
  if (const auto first = logs::firstHeadAtOrAfter(data, source, INT64_MIN + 1)) s.first = first->time;
  logs::LineHeads lines(source);
  if (const auto last = logs::headAtOrAbove(data, lines, data.linesIndexed - 1)) s.last = last->time;
  s.multilineMessages = countMultilineMessages(data, source);
  return s;
}

std::string timeText(const std::optional<logs::LineTime>& time) {
  return time ? logs::formatLineTime(*time) : "none";
}

// A bucket's start shown as the log's lines show their times.
std::string bucketText(int64_t micros, const Summary& s) {
  logs::LineTime time = s.first.value_or(logs::LineTime{});
  time.micros = micros;
  return logs::formatLineTime(time);
}

void writeLevels(JsonWriter& json, const std::array<int64_t, logs::kLevelCount>& levels) {
  json.beginObject();
  for (const logs::Level level : kLevelsShown) {
    if (levels[logs::levelSlot(level)] != 0) json.field(levelName(level), levels[logs::levelSlot(level)]);
  }
  json.endObject();
}

std::string levelsText(const std::array<int64_t, logs::kLevelCount>& levels) {
  std::string text;
  for (const logs::Level level : kLevelsShown) {
    const int64_t count = levels[logs::levelSlot(level)];
    if (count == 0) continue;
    if (!text.empty()) text += ", ";
    text += levelName(level) + ' ' + std::to_string(count);
  }
  return text.empty() ? "none" : text;
}

// A round bucket width: "30 s", "15 min", "6 h", "1 day", "14 days".
std::string widthText(int64_t micros) {
  const int64_t seconds = micros / 1'000'000;
  if (seconds % 86'400 == 0) return std::to_string(seconds / 86'400) + (seconds == 86'400 ? " day" : " days");
  if (seconds % 3600 == 0) return std::to_string(seconds / 3600) + " h";
  if (seconds % 60 == 0) return std::to_string(seconds / 60) + " min";
  return std::to_string(seconds) + " s";
}

std::string shareText(int64_t part, int64_t whole) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f%%",
                whole > 0 ? 100.0 * static_cast<double>(part) / static_cast<double>(whole) : 0.0);
  return text;
}

int64_t total(const std::array<int64_t, logs::kLevelCount>& levels) {
  int64_t sum = 0;
  for (const int64_t count : levels) sum += count;
  return sum;
}

void printJson(const std::string& path, const logs::LogIndexData& data, const Summary& s,
               const std::optional<logs::Timeline>& timeline, std::ostream& out) {
  JsonWriter json(out);
  json.beginObject().field("path", path).key("format");
  data.format ? json.value(logs::name(*data.format)) : json.null();
  json.field("lines", data.linesIndexed)
      .field("timestampedLines", data.timedLines)
      .field("timestampedShare", data.linesIndexed > 0 ? static_cast<double>(data.timedLines) /
                                                             static_cast<double>(data.linesIndexed)
                                                       : 0.0)
      .key("firstTime");
  s.first ? json.value(logs::formatLineTime(*s.first)) : json.null();
  json.key("lastTime");
  s.last ? json.value(logs::formatLineTime(*s.last)) : json.null();
  json.field("messages", s.messages).key("levels");
  writeLevels(json, s.levels);
  json.field("continuationLines", data.linesIndexed - s.messages)
      .field("multilineMessages", s.multilineMessages);
  if (timeline) {
    json.key("histogram")
        .beginObject()
        .field("bucketSeconds", static_cast<double>(timeline->bucketMicros) / 1e6);
    json.key("buckets").beginArray();
    for (size_t b = 0; b < timeline->buckets.size(); ++b) {
      const auto& levels = timeline->buckets[b];
      json.beginObject()
          .field("start",
                 bucketText(timeline->startMicros + static_cast<int64_t>(b) * timeline->bucketMicros, s))
          .field("messages", total(levels))
          .key("levels");
      writeLevels(json, levels);
      json.endObject();
    }
    json.endArray().endObject();
  }
  json.endObject();
  out << '\n';
}

void printText(const logs::LogIndexData& data, const Summary& s,
               const std::optional<logs::Timeline>& timeline, std::ostream& out) {
  out << "format: " << (data.format ? logs::name(*data.format) : "none") << '\n'
      << "timestamped: " << data.timedLines << " of " << data.linesIndexed << " lines ("
      << shareText(data.timedLines, data.linesIndexed) << ")\n"
      << "first: " << timeText(s.first) << '\n'
      << "last: " << timeText(s.last) << '\n'
      << "messages: " << s.messages << " (" << levelsText(s.levels) << ")\n"
      << "continuation lines: " << data.linesIndexed - s.messages << " in " << s.multilineMessages
      << " messages\n";
  if (!timeline) return;
  out << "histogram: " << timeline->buckets.size() << " buckets of " << widthText(timeline->bucketMicros)
      << '\n';
  for (size_t b = 0; b < timeline->buckets.size(); ++b) {
    const auto& levels = timeline->buckets[b];
    out << bucketText(timeline->startMicros + static_cast<int64_t>(b) * timeline->bucketMicros, s) << "  "
        << total(levels) << "  " << levelsText(levels) << '\n';
  }
}

}  // namespace

int runLogs(std::span<const std::string> args, std::ostream& out, std::ostream& err) {
  static constexpr std::array<OptionSpec, 2> kOptions = {{{"--json"}, {"--histogram", true}}};
  const auto parsed = parseCommandLine("logs", args, kOptions, 1, 1, err);
  if (!parsed) return kExitFailure;
  std::optional<int> buckets;
  if (const auto value = parsed->value("--histogram")) {
    int n = 0;
    const auto [end, error] = std::from_chars(value->data(), value->data() + value->size(), n);
    if (error != std::errc() || end != value->data() + value->size() || n < 1 || n > kMostBuckets) {
      printUsageError(err, "logs", "--histogram needs a number of buckets from 1 to 10000");
      return kExitFailure;
    }
    buckets = n;
  }
  const std::string& path = parsed->positionals.front();
  auto log = openLog(path, err);
  if (!log) {
    if (log.error().empty()) return kExitInterrupted;
    err << "quorin-cli: " << log.error() << '\n';
    return kExitFailure;
  }
  const logs::LogIndexData data = indexLog(*log, err);
  if (interruptRequested()) return kExitInterrupted;
  const logs::LogSource source = log->source();
  const Summary summary = summarize(data, source);
  if (interruptRequested()) return kExitInterrupted;
  std::optional<logs::Timeline> timeline;
  if (buckets)
    timeline = logs::buildTimeline(data, *buckets, summary.first ? summary.first->offsetSeconds : 0);

  if (parsed->has("--json")) {
    printJson(path, data, summary, timeline, out);
  } else {
    printText(data, summary, timeline, out);
  }
  return kExitOk;
}

}  // namespace quorin::cli
