#include "FilterCommand.h"

#include <array>
#include <atomic>
#include <charconv>
#include <nlohmann/json.hpp>

#include "Cli.h"
#include "Interrupt.h"
#include "LogsFile.h"
#include "Options.h"
#include "Progress.h"
#include "filter/FilterEvaluator.h"
#include "filter/ShownLines.h"
#include "text/LineEnding.h"

namespace quorin::cli {
namespace {

// Longer lines are shown cut, so one huge line cannot flood the terminal.
constexpr int64_t kMaxShownLineBytes = 4096;

std::optional<int64_t> contextLines(const ParsedOptions& parsed, const char* name, std::ostream& err) {
  const auto text = parsed.value(name);
  if (!text) return 0;
  int64_t lines = -1;
  const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), lines);
  if (error != std::errc() || end != text->data() + text->size() || lines < 0 ||
      lines > filter::kMaxContextLines) {
    err << "quorin-cli: " << name << " needs a number of lines from 0 to " << filter::kMaxContextLines
        << '\n';
    return std::nullopt;
  }
  return lines;
}

std::optional<logs::Level> levelNamed(const std::string& text) {
  for (int i = 1; i <= static_cast<int>(logs::Level::fatal); ++i) {
    if (logs::name(static_cast<logs::Level>(i)) == text) return static_cast<logs::Level>(i);
  }
  return std::nullopt;
}

// The rules the options ask for, in the order a user reads them.
std::optional<filter::FilterOptions> optionsFrom(const ParsedOptions& parsed, std::ostream& err) {
  filter::FilterOptions options;
  const auto pattern = [&](const std::string& text) {
    search::SearchOptions query;
    query.query = text;
    query.regex = parsed.has("--regex");
    query.caseSensitive = !parsed.has("-i");
    query.wholeWord = parsed.has("-w");
    return filter::PatternCondition{query};
  };
  for (const auto& text : parsed.values("-e"))
    options.rules.push_back(filter::FilterRule{true, filter::RuleAction::include, pattern(text)});
  for (const auto& text : parsed.values("-v"))
    options.rules.push_back(filter::FilterRule{true, filter::RuleAction::exclude, pattern(text)});
  if (const auto level = parsed.value("--level")) {
    const auto found = levelNamed(*level);
    if (!found) {
      err << "quorin-cli: unknown level '" << *level
          << "' (trace, debug, info, notice, warning, error, critical or fatal)\n";
      return std::nullopt;
    }
    options.rules.push_back(
        filter::FilterRule{true, filter::RuleAction::include, filter::LevelCondition{*found}});
  }
  if (parsed.has("--from") || parsed.has("--to")) {
    options.rules.push_back(filter::FilterRule{
        true, filter::RuleAction::include,
        filter::TimeWindowCondition{parsed.value("--from").value_or(""), parsed.value("--to").value_or("")}});
  }
  const auto before = contextLines(parsed, "-B", err);
  const auto after = contextLines(parsed, "-A", err);
  if (!before || !after) return std::nullopt;
  options.contextBefore = *before;
  options.contextAfter = *after;
  options.wholeMessages = parsed.has("--messages");
  return options;
}

void printJson(const std::string& path, const logs::LogSource& source, const filter::FilterProjection& shown,
               int64_t phantom, int64_t count, std::ostream& out) {
  using nlohmann::json;
  const auto dump = [](const json& value) {
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
  };
  out << "{\"path\":" << dump(path) << ",\"shown\":" << count
      << ",\"total\":" << shown.linesEvaluated() - (phantom >= 0 ? 1 : 0) << ",\"lines\":[";
  bool first = true;
  filter::forEachShownLine(source, shown, kMaxShownLineBytes, [&](const filter::ShownLine& line) {
    if (line.line == phantom) return true;
    json entry{{"line", line.line + 1}, {"text", std::string(line.text)}};
    if (line.cut) entry["cut"] = true;
    out << (first ? "" : ",") << dump(entry);
    first = false;
    return true;
  });
  out << "]}\n";
}

}  // namespace

int runFilter(std::span<const std::string> args, std::ostream& out, std::ostream& err) {
  static constexpr std::array<OptionSpec, 13> kOptions = {{{"-e", true},
                                                           {"-v", true},
                                                           {"--regex"},
                                                           {"-i"},
                                                           {"-w"},
                                                           {"--level", true},
                                                           {"--from", true},
                                                           {"--to", true},
                                                           {"-B", true},
                                                           {"-A", true},
                                                           {"--messages"},
                                                           {"--count"},
                                                           {"--json"}}};
  const auto parsed = parseCommandLine("filter", args, kOptions, 1, 1, err);
  if (!parsed) return kExitFailure;
  const auto options = optionsFrom(*parsed, err);
  if (!options) return kExitFailure;
  const auto compiled = filter::compileFilter(*options);
  if (!compiled) {
    err << "quorin-cli: " << compiled.error().describe() << '\n';
    return kExitFailure;
  }
  for (const std::string& error : compiled->ruleErrors) {
    if (error.empty()) continue;
    // A view leaves a broken rule out; a command asked for it and stops.
    err << "quorin-cli: " << error << '\n';
    return kExitFailure;
  }

  const std::string& path = parsed->positionals[0];
  auto log = openLog(path, err);
  if (!log) {
    if (log.error().empty()) return kExitInterrupted;
    err << "quorin-cli: " << log.error() << '\n';
    return kExitFailure;
  }
  filter::FilterContext context;
  if (compiled->needsMessages()) {
    context.logData = std::make_shared<const logs::LogIndexData>(indexLog(*log, err));
    if (interruptRequested()) return kExitInterrupted;
    if (compiled->needsTimes() && !context.logData->hasTimes()) {
      err << "quorin-cli: " << logs::kNoTimestampsMessage << '\n';
      return kExitFailure;
    }
  }
  const auto source = log->source();
  search::SearchCancellation cancellation;
  std::atomic<int64_t> done{0}, total{0};
  filter::FilterResult result;
  {
    const InterruptGuard interrupt([&] { cancellation.cancel(); });
    const ProgressLine progress(err, [&] {
      return "filtering " + percentText(static_cast<double>(done.load()), static_cast<double>(total.load()));
    });
    result = filter::evaluateFilter(*compiled, source, context, {}, &cancellation,
                                    [&](const filter::FilterProgress& p) {
                                      done.store(p.linesEvaluated);
                                      total.store(p.totalLines);
                                    });
  }
  if (interruptRequested() || result.cancelled) return kExitInterrupted;
  const filter::FilterProjection& shown = *result.projection;
  // The empty line after a final line break is a line to the editor, not to
  // grep and its users: it is neither printed nor counted.
  const int64_t length = source.text.totalLength();
  const int64_t phantom =
      length == 0 || source.text.byte(length - 1) == text::lineTerminator(log->original->lineEnding())
          ? shown.linesEvaluated() - 1
          : -1;
  const int64_t count = shown.visibleLineCount() - (phantom >= 0 && shown.isVisible(phantom) ? 1 : 0);
  if (parsed->has("--json")) {
    printJson(path, source, shown, phantom, count, out);
  } else if (parsed->has("--count")) {
    out << count << '\n';
  } else {
    const bool groups = options->contextBefore > 0 || options->contextAfter > 0 || options->wholeMessages;
    std::string buffer;
    filter::forEachShownLine(source, shown, kMaxShownLineBytes, [&](const filter::ShownLine& line) {
      if (line.line == phantom) return true;
      if (groups && line.afterGap) buffer += "--\n";
      buffer += std::to_string(line.line + 1);
      buffer += ':';
      buffer += line.text;
      if (line.cut) buffer += "…";
      buffer += '\n';
      if (buffer.size() > (1 << 16)) {
        out << buffer;
        buffer.clear();
      }
      return !interruptRequested();
    });
    out << buffer;
  }
  if (result.timedOut) {
    err << "quorin-cli: " << result.notice << '\n';
    return kExitFailure;
  }
  return count > 0 ? kExitOk : kExitNotFound;
}

}  // namespace quorin::cli
