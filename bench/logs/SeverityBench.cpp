// Severity detection per line over a generated application log and over
// logfmt and JSON lines, next to what merely finding the lines costs (the
// memchr scan `wc -l` does over the same bytes): the level of every line is
// wanted wherever the line index is, so it should cost about as much.

#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "gen/LogGenerator.h"
#include "gen/Output.h"
#include "logs/Severity.h"
#include "logs/SeverityRules.h"
#include "support/RatioReporter.h"

namespace {

using quorin::logs::Level;

constexpr int64_t kLogSize = int64_t{16} << 20;

struct Line {
  std::string_view text;
  size_t timestampEnd;  // the first blank: the generated timestamps hold none
};

struct Corpus {
  std::string text;
  std::vector<Line> lines;
};

Corpus split(std::string text) {
  Corpus corpus{std::move(text), {}};
  std::string_view rest = corpus.text;
  while (!rest.empty()) {
    const size_t end = std::min(rest.find('\n'), rest.size());
    const std::string_view line = rest.substr(0, end);
    corpus.lines.push_back({line, std::min(line.find(' '), line.size())});
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return corpus;
}

const Corpus& generatedLog() {
  static const Corpus corpus = [] {
    quorin::gen::LogGenerator generator(42);
    return split(quorin::gen::generate(generator, kLogSize));
  }();
  return corpus;
}

// Structured lines whose level sits after other keys, so that the whole
// window is read: the slow case for the default rules.
const Corpus& structuredLog() {
  static const Corpus corpus = [] {
    std::string text;
    const char* levels[] = {"info", "debug", "warn", "error"};
    for (int i = 0; i < 200'000; ++i) {
      const char* level = levels[i % 4];
      if (i % 2 == 0) {
        text += "2026-03-20T12:00:00.123Z host=web-3 service=orders req=8f3a2c" + std::to_string(i) +
                " latency_ms=" + std::to_string(i % 977) + " level=" + level + " msg=\"order placed\"\n";
      } else {
        text += std::string("{\"time\":\"2026-03-20T12:00:00.123Z\",\"host\":\"web-3\",\"req\":\"8f3a\",") +
                "\"level\": \"" + level + "\",\"msg\":\"order placed\",\"items\":" + std::to_string(i % 9) +
                "}\n";
      }
    }
    return split(std::move(text));
  }();
  return corpus;
}

const Corpus& corpusOf(const benchmark::State& state) {
  return state.range(0) == 0 ? generatedLog() : structuredLog();
}

void finish(benchmark::State& state, const Corpus& corpus) {
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(corpus.lines.size()));
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(corpus.text.size()));
}

void defaultRules(benchmark::State& state) {
  const Corpus& corpus = corpusOf(state);
  for (auto _ : state) {
    unsigned counts[9] = {};
    for (const Line& line : corpus.lines)
      ++counts[static_cast<size_t>(quorin::logs::detectLineLevel(line.text, line.timestampEnd))];
    benchmark::DoNotOptimize(counts);
  }
  finish(state, corpus);
}

// One literal user rule that rarely matches, so the defaults still run.
void withUserRule(benchmark::State& state) {
  const Corpus& corpus = corpusOf(state);
  quorin::logs::SeverityRules rules;
  if (!rules.setUserRules({{"payment declined", false, Level::critical}})) state.SkipWithError("rules");
  for (auto _ : state) {
    unsigned counts[9] = {};
    for (const Line& line : corpus.lines)
      ++counts[static_cast<size_t>(rules.detect(line.text, line.timestampEnd))];
    benchmark::DoNotOptimize(counts);
  }
  finish(state, corpus);
}

void lineScanBaseline(benchmark::State& state) {
  const Corpus& corpus = corpusOf(state);
  for (auto _ : state) {
    size_t lines = 0;
    const char* at = corpus.text.data();
    const char* end = at + corpus.text.size();
    while (at < end) {
      const void* found = std::memchr(at, '\n', static_cast<size_t>(end - at));
      if (found == nullptr) break;
      at = static_cast<const char*>(found) + 1;
      ++lines;
    }
    benchmark::DoNotOptimize(lines);
  }
  finish(state, corpus);
}

void registerAll() {
  for (const int64_t corpus : {0, 1}) {
    benchmark::RegisterBenchmark("Severity_DefaultRules", defaultRules)->ArgName("structured")->Arg(corpus);
    benchmark::RegisterBenchmark("Severity_WithUserRule", withUserRule)->ArgName("structured")->Arg(corpus);
    benchmark::RegisterBenchmark("Baseline_LineScan", lineScanBaseline)->ArgName("structured")->Arg(corpus);
  }
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  registerAll();
  quorin::bench::RatioReporter reporter({
      {"Severity_DefaultRules", "Baseline_LineScan", true},
      {"Severity_WithUserRule", "Baseline_LineScan", true},
  });
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
