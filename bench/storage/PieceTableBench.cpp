// Piece-table edit, snapshot and compaction costs as the piece count grows,
// each next to what a naive editor pays for the same operation: a flat
// std::string the size of the document, or a plain copy of the piece list.

#include <benchmark/benchmark.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "gen/LogGenerator.h"
#include "gen/Output.h"
#include "gen/Random.h"
#include "storage/MMapWrapper.h"
#include "storage/OriginalBuffer.h"
#include "storage/PieceTable.h"
#include "support/RatioReporter.h"

namespace {

using quorin::storage::ByteRange;
using quorin::storage::OriginalBuffer;
using quorin::storage::Piece;
using quorin::storage::PieceSource;
using quorin::storage::PieceTable;
using Sites = std::vector<PieceTable::BulkEditSite>;

constexpr int64_t kDocumentSize = int64_t{64} << 20;
constexpr int64_t kPieceCounts[] = {10'000, 100'000, 1'000'000};
// Bytes typed in one go in the compaction table: each lands in its own
// append piece, right after the previous one in the append buffer.
constexpr int kBurstLength = 8;

// The 64 MiB log every table is built over, mapped like a file the user
// opened. The file is unlinked at once: the mapping keeps its pages.
struct Document {
  std::string text;
  std::shared_ptr<const OriginalBuffer> original;
};

const Document& document() {
  static const Document doc = [] {
    quorin::gen::LogGenerator generator(42);
    Document d{quorin::gen::generate(generator, kDocumentSize), nullptr};
    char path[] = "/tmp/quorin-bench-XXXXXX";
    const int fd = ::mkstemp(path);
    if (fd < 0 || ::write(fd, d.text.data(), d.text.size()) != static_cast<ssize_t>(d.text.size()))
      throw std::runtime_error("cannot write the benchmark document");
    ::close(fd);
    auto mapped = quorin::storage::MMapWrapper::open(path);
    ::unlink(path);
    if (!mapped) throw std::runtime_error("cannot map the benchmark document");
    d.original = OriginalBuffer::make(*mapped);
    return d;
  }();
  return doc;
}

// One byte inserted at `pieces / 2` evenly spaced positions: every site
// splits an original piece and adds an append piece, so pieces + 1 in all.
Sites scatteredInserts(int64_t pieces) {
  const int64_t sites = pieces / 2;
  const int64_t spacing = kDocumentSize / (sites + 1);
  Sites result(static_cast<size_t>(sites));
  for (int64_t i = 0; i < sites; ++i)
    result[static_cast<size_t>(i)] = {{(i + 1) * spacing, (i + 1) * spacing}, "x"};
  return result;
}

// Bursts of typing: kBurstLength one-byte sites at the same position, which
// compaction merges into one append piece, leaving about 2 pieces of every 9.
Sites typingBursts(int64_t pieces) {
  const int64_t bursts = pieces / (kBurstLength + 1);
  const int64_t spacing = kDocumentSize / (bursts + 1);
  Sites result;
  result.reserve(static_cast<size_t>(bursts * kBurstLength));
  for (int64_t i = 1; i <= bursts; ++i)
    for (int k = 0; k < kBurstLength; ++k)
      result.push_back({{i * spacing, i * spacing}, std::string(1, 'a' + k)});
  return result;
}

std::unique_ptr<PieceTable> buildTable(const Sites& sites) {
  auto table = std::make_unique<PieceTable>(document().original);
  table->applyBulkEdits(sites);
  return table;
}

// Edit benchmarks share one table per size across Google Benchmark's
// repeated calls, since building the large ones takes longer than measuring
// them. Each insert adds two pieces and each delete at most one, so a table
// that has grown 1% past its size is rebuilt, outside the timed region.
std::unique_ptr<PieceTable>& sharedTable(int64_t pieces) {
  static std::map<int64_t, std::unique_ptr<PieceTable>> tables;
  auto& table = tables[pieces];
  if (!table) table = buildTable(scatteredInserts(pieces));
  return table;
}

void rebuildIfGrown(benchmark::State& state, std::unique_ptr<PieceTable>& table, int64_t pieces) {
  if (static_cast<int64_t>(table->pieceCount()) <= pieces + pieces / 100) return;
  state.PauseTiming();
  table = buildTable(scatteredInserts(pieces));
  state.ResumeTiming();
}

int64_t randomOffset(quorin::gen::Random& rng, int64_t limit) {
  return static_cast<int64_t>(rng.next() % static_cast<uint64_t>(limit + 1));
}

void setPieceCounter(benchmark::State& state, size_t pieces) {
  state.counters["pieces"] = static_cast<double>(pieces);
}

void pieceTableInsert(benchmark::State& state) {
  auto& table = sharedTable(state.range(0));
  quorin::gen::Random rng(1);
  for (auto _ : state) {
    rebuildIfGrown(state, table, state.range(0));
    benchmark::DoNotOptimize(table->insert("x", randomOffset(rng, table->totalLength())));
  }
  setPieceCounter(state, table->pieceCount());
}

void pieceTableDelete(benchmark::State& state) {
  auto& table = sharedTable(state.range(0));
  quorin::gen::Random rng(2);
  for (auto _ : state) {
    rebuildIfGrown(state, table, state.range(0));
    const int64_t at = randomOffset(rng, table->totalLength() - 4);
    benchmark::DoNotOptimize(table->deleteRange({at, at + 4}));
  }
  setPieceCounter(state, table->pieceCount());
}

void pieceTableSnapshot(benchmark::State& state) {
  const auto& table = sharedTable(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(table->snapshot());
  setPieceCounter(state, table->pieceCount());
}

// CPU time of the calling thread, where compact() does all its work: unlike
// the wall clock it does not count the time other processes hold the CPU.
double threadCpuSeconds() {
  timespec now{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// Every iteration compacts a freshly built table (most neighbours
// mergeable); only the compact() call itself is timed.
void pieceTableCompact(benchmark::State& state) {
  const Sites sites = typingBursts(state.range(0));
  PieceTable::CompactionResult result;
  for (auto _ : state) {
    auto table = buildTable(sites);
    const double start = threadCpuSeconds();
    result = table->compact(1e9);
    state.SetIterationTime(threadCpuSeconds() - start);
    if (!result.swapped) state.SkipWithError("compaction did not install its list");
  }
  setPieceCounter(state, static_cast<size_t>(result.piecesBefore));
  state.counters["piecesAfter"] = static_cast<double>(result.piecesAfter);
}

std::string& flatDocument() {
  static std::string text = document().text;
  return text;
}

void stringInsertBaseline(benchmark::State& state) {
  std::string& text = flatDocument();
  quorin::gen::Random rng(1);
  for (auto _ : state) {
    text.insert(static_cast<size_t>(randomOffset(rng, static_cast<int64_t>(text.size()))), 1, 'x');
    benchmark::ClobberMemory();
  }
  state.counters["bytes"] = static_cast<double>(text.size());
}

void stringEraseBaseline(benchmark::State& state) {
  std::string& text = flatDocument();
  quorin::gen::Random rng(2);
  for (auto _ : state) {
    text.erase(static_cast<size_t>(randomOffset(rng, static_cast<int64_t>(text.size()) - 4)), 4);
    benchmark::ClobberMemory();
  }
  state.counters["bytes"] = static_cast<double>(text.size());
}

void pieceVectorCopyBaseline(benchmark::State& state) {
  const std::vector<Piece> pieces(static_cast<size_t>(state.range(0)), Piece{PieceSource::append, 0, 1});
  for (auto _ : state) {
    std::vector<Piece> copy = pieces;
    benchmark::DoNotOptimize(copy.data());
  }
  setPieceCounter(state, pieces.size());
}

// Rebuilding a table costs far more than compacting it, so the compaction
// runs a fixed number of times rather than until the timer is satisfied.
int64_t compactionIterations(int64_t pieces) { return std::max<int64_t>(10, 2'000'000 / pieces); }

void registerAll() {
  for (const int64_t n : kPieceCounts) {
    benchmark::RegisterBenchmark("PieceTable_Insert1Byte", pieceTableInsert)->ArgName("pieces")->Arg(n);
  }
  benchmark::RegisterBenchmark("Baseline_StringInsert1Byte_64MiB", stringInsertBaseline);
  for (const int64_t n : kPieceCounts)
    benchmark::RegisterBenchmark("PieceTable_Delete4Bytes", pieceTableDelete)->ArgName("pieces")->Arg(n);
  benchmark::RegisterBenchmark("Baseline_StringErase4Bytes_64MiB", stringEraseBaseline);
  for (const int64_t n : kPieceCounts)
    benchmark::RegisterBenchmark("PieceTable_Snapshot", pieceTableSnapshot)->ArgName("pieces")->Arg(n);
  for (const int64_t n : kPieceCounts) {
    benchmark::RegisterBenchmark("PieceTable_Compact", pieceTableCompact)
        ->ArgName("pieces")
        ->Arg(n)
        ->UseManualTime()
        ->Iterations(compactionIterations(n))
        ->Unit(benchmark::kMicrosecond);
  }
  for (const int64_t n : kPieceCounts)
    benchmark::RegisterBenchmark("Baseline_PieceVectorCopy", pieceVectorCopyBaseline)
        ->ArgName("pieces")
        ->Arg(n);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  registerAll();
  quorin::bench::RatioReporter reporter({
      {"PieceTable_Insert1Byte", "Baseline_StringInsert1Byte_64MiB", false},
      {"PieceTable_Delete4Bytes", "Baseline_StringErase4Bytes_64MiB", false},
      {"PieceTable_Snapshot", "Baseline_PieceVectorCopy", true},
      {"PieceTable_Compact", "Baseline_PieceVectorCopy", true},
  });
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
