#include "GotoCommand.h"

#include <array>
#include <cstdint>
#include <cstdio>

#include "Cli.h"
#include "Json.h"
#include "Options.h"
#include "logs/GoToTarget.h"

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

void printJson(const logs::GoToTarget& target, std::ostream& out) {
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

}  // namespace

int runGoto(std::span<const std::string> args, std::ostream& out, std::ostream& err) {
  static constexpr std::array<OptionSpec, 1> kOptions = {{{"--json"}}};
  const auto parsed = parseCommandLine("goto", args, kOptions, 1, SIZE_MAX, err);
  if (!parsed) return kExitFailure;
  const bool asJson = parsed->has("--json");
  std::string typed;
  for (const std::string& word : parsed->positionals) {
    if (!typed.empty()) typed.push_back(' ');
    typed += word;
  }

  const auto target = logs::parseGoToTarget(typed);
  if (target) {
    if (asJson) {
      printJson(*target, out);
    } else {
      out << targetText(*target) << '\n';
    }
    return kExitOk;
  }
  const std::string message =
      target.error().kind == logs::ParseFailure::Kind::empty ? "nothing to go to" : target.error().message();
  if (asJson) {
    JsonWriter json(out);
    json.beginObject()
        .field("kind", "failure")
        .field("failure", kindName(target.error().kind))
        .field("message", message)
        .endObject();
    out << '\n';
  } else {
    err << "quorin-cli: " << message << '\n';
  }
  return kExitFailure;
}

}  // namespace quorin::cli
