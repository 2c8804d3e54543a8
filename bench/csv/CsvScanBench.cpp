// The CSV record scan in process: the 64-byte-block scanner against the
// byte-at-a-time state machine it must agree with, over the same order
// export, and the record index build (snapshot reads, chunk commits,
// statistics) on top of the fast scanner. Throughput is bytes per second;
// the closing table divides each subject's time by the bytewise scan's.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <vector>

#include "csv/CSVRecordIndex.h"
#include "csv/RecordScanner.h"
#include "gen/CsvGenerator.h"
#include "gen/Output.h"
#include "storage/OriginalBuffer.h"
#include "storage/PieceTable.h"
#include "support/RatioReporter.h"

namespace {

using quorin::csv::RecordScanner;
using quorin::csv::ScannedRecord;

constexpr int64_t kTableBytes = int64_t{256} << 20;

const std::string& table() {
  static const std::string text = [] {
    quorin::gen::CsvGenerator generator(1);
    return quorin::gen::generate(generator, kTableBytes);
  }();
  return text;
}

std::span<const uint8_t> tableBytes() {
  return {reinterpret_cast<const uint8_t*>(table().data()), table().size()};
}

// Scans in 4 MiB pieces as the index does, so that both sides pay the same
// per-piece costs and hand records over the same way.
template <bool kBytewise>
void scanTable(benchmark::State& state) {
  const auto bytes = tableBytes();
  std::vector<ScannedRecord> records;
  size_t rows = 0;
  for (auto _ : state) {
    RecordScanner scanner(',', '\n');
    rows = 0;
    for (size_t at = 0; at < bytes.size(); at += quorin::csv::kIndexChunkBytes) {
      records.clear();
      const auto piece =
          bytes.subspan(at, std::min<size_t>(quorin::csv::kIndexChunkBytes, bytes.size() - at));
      if constexpr (kBytewise) {
        scanner.scanBytewise(piece, records);
      } else {
        scanner.scan(piece, records);
      }
      rows += records.size();
    }
    benchmark::DoNotOptimize(rows);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes.size()));
  state.counters["rows"] = static_cast<double>(rows);
}

void Baseline_BytewiseScan(benchmark::State& state) { scanTable<true>(state); }
void RecordScanner_Scan(benchmark::State& state) { scanTable<false>(state); }

void CSVRecordIndex_Build(benchmark::State& state) {
  quorin::storage::PieceTable pieces(quorin::storage::OriginalBuffer::untitled());
  pieces.insert(table(), 0);
  const auto snapshot = pieces.snapshot();
  int64_t rows = 0;
  for (auto _ : state) {
    quorin::csv::CSVRecordIndex index(quorin::csv::CSVDelimiter::comma(), snapshot.totalLength());
    index.build(snapshot, '\n');
    rows = index.rowCount();
    benchmark::DoNotOptimize(rows);
  }
  state.SetBytesProcessed(state.iterations() * snapshot.totalLength());
  state.counters["rows"] = static_cast<double>(rows);
}

}  // namespace

BENCHMARK(Baseline_BytewiseScan)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(RecordScanner_Scan)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(CSVRecordIndex_Build)->Unit(benchmark::kMillisecond)->UseRealTime();

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  // Agreement first: a fast scan that finds other records is no result.
  {
    std::vector<ScannedRecord> fast, bytewise;
    RecordScanner a(',', '\n'), b(',', '\n');
    a.scan(tableBytes(), fast);
    b.scanBytewise(tableBytes(), bytewise);
    if (fast != bytewise) {
      std::fprintf(stderr, "quorin-bench-csv: the fast and bytewise scans disagree\n");
      return 1;
    }
    std::fprintf(stderr, "%zu records agree\n", fast.size());
  }
  quorin::bench::RatioReporter reporter({
      {"RecordScanner_Scan", "Baseline_BytewiseScan", false},
      {"CSVRecordIndex_Build", "Baseline_BytewiseScan", false},
  });
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
