// Timestamp parsing of the generated application log's ISO 8601 lines, per
// core: a fresh parse of every line, the per-document parser that reuses the
// previous line's minute, and strptime + timegm as the naive baseline.
// Throughput is in items_per_second (lines).

#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "gen/LogGenerator.h"
#include "gen/Output.h"
#include "logs/Timestamp.h"
#include "logs/TimestampParser.h"
#include "support/RatioReporter.h"

namespace {

using quorin::logs::TimestampFormat;

constexpr int64_t kLogSize = int64_t{32} << 20;

struct Sample {
  std::string text;
  std::vector<std::string_view> lines;  // those that start with a timestamp
};

const Sample& sample() {
  static const Sample s = [] {
    quorin::gen::LogGenerator generator(42);
    Sample out{quorin::gen::generate(generator, kLogSize), {}};
    const std::string_view text = out.text;
    for (size_t start = 0; start < text.size();) {
      const size_t newline = std::min(text.find('\n', start), text.size());
      const std::string_view line = text.substr(start, newline - start);
      if (quorin::logs::parseTimestamp(TimestampFormat::iso8601, line, 2026)) out.lines.push_back(line);
      start = newline + 1;
    }
    return out;
  }();
  return s;
}

void isoParse(benchmark::State& state) {
  const auto& lines = sample().lines;
  for (auto _ : state) {
    int64_t sum = 0;
    for (const std::string_view line : lines)
      sum += quorin::logs::parseTimestamp(TimestampFormat::iso8601, line, 2026)->micros;
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(lines.size()));
}

void isoParser(benchmark::State& state) {
  const auto& lines = sample().lines;
  for (auto _ : state) {
    quorin::logs::TimestampParser parser(TimestampFormat::iso8601, 2026);
    int64_t sum = 0;
    for (const std::string_view line : lines) sum += parser.parse(line)->micros;
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(lines.size()));
}

// What a quick implementation does: copy the line's head, strptime, timegm.
void strptimeBaseline(benchmark::State& state) {
  const auto& lines = sample().lines;
  for (auto _ : state) {
    int64_t sum = 0;
    for (const std::string_view line : lines) {
      const std::string head(line.substr(0, 32));
      struct tm tm {};
      const char* rest = strptime(head.c_str(), "%Y-%m-%dT%H:%M:%S", &tm);
      if (rest == nullptr) continue;
      sum +=
          static_cast<int64_t>(timegm(&tm)) * 1'000'000 + (rest[0] == '.' ? std::atoi(rest + 1) * 1000 : 0);
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(lines.size()));
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RegisterBenchmark("Timestamp_IsoParse", isoParse)->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("Timestamp_IsoParser", isoParser)->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("Baseline_Strptime", strptimeBaseline)->Unit(benchmark::kMillisecond);
  quorin::bench::RatioReporter reporter({
      {"Timestamp_IsoParse", "Baseline_Strptime", false},
      {"Timestamp_IsoParser", "Baseline_Strptime", false},
  });
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
