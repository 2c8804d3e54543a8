#include "GotoCommand.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>

#include "Cli.h"
#include "Interrupt.h"
#include "Json.h"
#include "LogsFile.h"
#include "Options.h"
#include "csv/CSVRecordIndex.h"
#include "csv/DelimiterDetection.h"
#include "logs/GoToTarget.h"
#include "logs/TimeNavigator.h"

namespace quorin::cli {
namespace {

std::string number(double value) {
  char text[64];
  std::snprintf(text, sizeof text, "%.15g", value);
  return text;
}

// "2026-09-04 12:34:56" with the parts that were typed.
std::string timeText(const logs::TimeTarget& time) {
  char text[64] = "";
  std::string out;
  if (time.year) {
    std::snprintf(text, sizeof text, "%04d-%02d-%02d", *time.year, *time.month, *time.day);
    out = text;
  }
  if (time.hour) {
    std::snprintf(text, sizeof text, "%02d:%02d", *time.hour, *time.minute);
    if (!out.empty()) out.push_back(' ');
    out += text;
    if (time.second) {
      std::snprintf(text, sizeof text, ":%02d", *time.second);
      out += text;
    }
  }
  return out;
}

std::string_view kindName(logs::ParseFailure::Kind kind) {
  using enum logs::ParseFailure::Kind;
  switch (kind) {
    case timeOutOfRange: return "timeOutOfRange";
    case offsetInvalid: return "offsetInvalid";
    case targetInvalid: return "targetInvalid";
    case empty: return "empty";
    case notRecognized: return "notRecognized";
  }
  return "notRecognized";
}

void writeOptional(JsonWriter& json, std::string_view name, const std::optional<int>& value) {
  json.key(name);
  value ? json.value(*value) : json.null();
}

// Where a target landed in a file: a 1-based line, and what to tell.
struct Landing {
  int64_t line = 1;
  std::string notice;
};

void printJson(const logs::GoToTarget& target, const std::optional<Landing>& landing, std::ostream& out) {
  JsonWriter json(out);
  json.beginObject();
  std::visit(
      [&](const auto& t) {
        using T = std::decay_t<decltype(t)>;
        if constexpr (std::is_same_v<T, logs::LineTarget>) {
          json.field("kind", "line").field("line", t.line);
        } else if constexpr (std::is_same_v<T, logs::PercentTarget>) {
          json.field("kind", "percent").field("percent", t.percent);
        } else if constexpr (std::is_same_v<T, logs::ByteTarget>) {
          json.field("kind", "byte").field("byte", t.offset);
        } else if constexpr (std::is_same_v<T, logs::RecordTarget>) {
          json.field("kind", "record").field("record", t.record);
        } else if constexpr (std::is_same_v<T, logs::TimeTarget>) {
          json.field("kind", "time");
          writeOptional(json, "year", t.year);
          writeOptional(json, "month", t.month);
          writeOptional(json, "day", t.day);
          writeOptional(json, "hour", t.hour);
          writeOptional(json, "minute", t.minute);
          writeOptional(json, "second", t.second);
        } else {
          json.field("kind", "timeOffset").field("seconds", t.seconds);
        }
      },
      target);
  if (landing) {
    json.field("line", landing->line);
    if (!landing->notice.empty()) json.field("notice", landing->notice);
  }
  json.endObject();
  out << '\n';
}

std::string targetText(const logs::GoToTarget& target) {
  return std::visit(
      [](const auto& t) -> std::string {
        using T = std::decay_t<decltype(t)>;
        if constexpr (std::is_same_v<T, logs::LineTarget>) {
          return "line " + std::to_string(t.line);
        } else if constexpr (std::is_same_v<T, logs::PercentTarget>) {
          return "percent " + number(t.percent);
        } else if constexpr (std::is_same_v<T, logs::ByteTarget>) {
          return "byte " + std::to_string(t.offset);
        } else if constexpr (std::is_same_v<T, logs::RecordTarget>) {
          return "record " + std::to_string(t.record);
        } else if constexpr (std::is_same_v<T, logs::TimeTarget>) {
          return "time " + timeText(t);
        } else {
          return "timeOffset " + number(t.seconds) + " seconds";
        }
      },
      target);
}

// Why a target has no line in the file: a name for JSON and the text.
struct Unresolved {
  std::string failure;
  std::string message;
};

std::string timeRefusalName(logs::TimeRefusal::Kind kind) {
  switch (kind) {
    case logs::TimeRefusal::Kind::noTimestamps: return "noTimestamps";
    case logs::TimeRefusal::Kind::caretWithoutTime: return "caretWithoutTime";
    case logs::TimeRefusal::Kind::notIndexed: return "notIndexed";
  }
  return "noTimestamps";
}

int64_t lineAtOffset(const OpenedLog& log, int64_t offset) {
  return log.lines->snapshot().lineContaining(offset).value_or(0) + 1;
}

// Records are numbered as the table view numbers them by default: from the
// first row under the header row.
std::expected<Landing, Unresolved> resolveRecord(const OpenedLog& log, int64_t record) {
  const storage::PieceTableSnapshot text = log.table->snapshot();
  const uint8_t terminator = csv::recordTerminator(log.original->lineEnding());
  const auto delimiter = csv::detectDelimiter(text, terminator);
  if (!delimiter) return std::unexpected(Unresolved{"notATable", std::string(csv::kCouldNotParseMessage)});
  csv::CSVRecordIndex index(*delimiter, text.totalLength());
  index.build(text, terminator);
  const int64_t rows = index.rowCount();
  if (rows < 2) return std::unexpected(Unresolved{"noRecords", "No records under the header row"});
  int64_t row = std::max<int64_t>(record, 1);
  Landing landing;
  if (row >= rows) {
    landing.notice = "Record " + std::to_string(record) + " is past the last one (" +
                     std::to_string(rows - 1) + ") — went to the last record";
    row = rows - 1;
  }
  landing.line = lineAtOffset(log, index.rowStart(row).value_or(0));
  return landing;
}

std::expected<Landing, Unresolved> resolve(const logs::GoToTarget& target, const OpenedLog& log,
                                           int64_t caretLine, std::ostream& err) {
  const int64_t total = log.table->totalLength();
  const int64_t lineCount = std::max<int64_t>(log.lines->snapshot().knownLineCount(), 1);
  if (const auto* line = std::get_if<logs::LineTarget>(&target)) {
    if (line->line <= lineCount) return Landing{std::max<int64_t>(line->line, 1), {}};
    return Landing{lineCount, "Line " + std::to_string(line->line) + " is past the end (" +
                                  std::to_string(lineCount) + " lines) — went to the last line"};
  }
  if (const auto* percent = std::get_if<logs::PercentTarget>(&target)) {
    const auto offset =
        static_cast<int64_t>(std::floor(static_cast<double>(total) * percent->percent / 100.0));
    return Landing{lineAtOffset(log, std::clamp<int64_t>(offset, 0, total)), {}};
  }
  if (const auto* byte = std::get_if<logs::ByteTarget>(&target)) {
    if (byte->offset <= total) return Landing{lineAtOffset(log, byte->offset), {}};
    return Landing{lineAtOffset(log, total), "Byte " + std::to_string(byte->offset) + " is past the end (" +
                                                 std::to_string(total) + " bytes) — went to the end"};
  }
  if (const auto* record = std::get_if<logs::RecordTarget>(&target))
    return resolveRecord(log, record->record);

  const logs::TimeInput input = std::holds_alternative<logs::TimeTarget>(target)
                                    ? logs::TimeInput(std::get<logs::TimeTarget>(target))
                                    : logs::TimeInput(std::get<logs::TimeOffsetTarget>(target));
  const logs::LogIndexData data = indexLog(log, err);
  if (interruptRequested()) return std::unexpected(Unresolved{});
  const auto jump = logs::resolveTime(data, log.source(), input, caretLine);
  if (!jump) return std::unexpected(Unresolved{timeRefusalName(jump.error().kind), jump.error().describe()});
  return Landing{jump->line + 1, jump->notice};
}

}  // namespace

int runGoto(std::span<const std::string> args, std::ostream& out, std::ostream& err) {
  static constexpr std::array<OptionSpec, 3> kOptions = {{{"--json"}, {"--file", true}, {"--at", true}}};
  const auto parsed = parseCommandLine("goto", args, kOptions, 1, SIZE_MAX, err);
  if (!parsed) return kExitFailure;
  const bool asJson = parsed->has("--json");
  const auto file = parsed->value("--file");
  int64_t caretLine = 1;
  if (const auto at = parsed->value("--at")) {
    const auto [end, error] = std::from_chars(at->data(), at->data() + at->size(), caretLine);
    if (!file || error != std::errc() || end != at->data() + at->size() || caretLine < 1) {
      printUsageError(err, "goto", file ? "--at needs a line number from 1" : "--at needs --file");
      return kExitFailure;
    }
  }
  std::string typed;
  for (const std::string& word : parsed->positionals) {
    if (!typed.empty()) typed.push_back(' ');
    typed += word;
  }

  const auto fail = [&](std::string_view failure, const std::string& message) {
    if (asJson) {
      JsonWriter json(out);
      json.beginObject()
          .field("kind", "failure")
          .field("failure", failure)
          .field("message", message)
          .endObject();
      out << '\n';
    } else {
      err << "quorin-cli: " << message << '\n';
    }
    return kExitFailure;
  };

  const auto target = logs::parseGoToTarget(typed);
  if (!target) {
    return fail(kindName(target.error().kind), target.error().kind == logs::ParseFailure::Kind::empty
                                                   ? "nothing to go to"
                                                   : target.error().message());
  }
  if (!file) {
    if (asJson) {
      printJson(*target, std::nullopt, out);
    } else {
      out << targetText(*target) << '\n';
    }
    return kExitOk;
  }

  auto log = openLog(*file, err);
  if (!log) {
    if (log.error().empty()) return kExitInterrupted;
    err << "quorin-cli: " << log.error() << '\n';
    return kExitFailure;
  }
  const auto landing = resolve(*target, *log, caretLine - 1, err);
  if (interruptRequested()) return kExitInterrupted;
  if (!landing) return fail(landing.error().failure, landing.error().message);
  if (asJson) {
    printJson(*target, *landing, out);
  } else {
    out << landing->line << '\n';
    if (!landing->notice.empty()) err << "quorin-cli: " << landing->notice << '\n';
  }
  return kExitOk;
}

}  // namespace quorin::cli
