#include "IndexCommand.h"

#include <array>
#include <chrono>
#include <cstdio>

#include "Cli.h"
#include "Interrupt.h"
#include "Json.h"
#include "Options.h"
#include "Progress.h"
#include "dispatch/Clock.h"
#include "storage/InMemoryLineIndex.h"
#include "storage/MMapWrapper.h"
#include "storage/OriginalBuffer.h"
#include "storage/ScratchDirectory.h"

namespace quorin::cli {
namespace {

double secondsSince(uint64_t startNs) {
  return static_cast<double>(dispatch::monotonicNanos() - startNs) / 1e9;
}

std::string milliseconds(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f", seconds * 1000);
  return text;
}

}  // namespace

int runIndex(std::span<const std::string> args, std::ostream& out, std::ostream& err) {
  static constexpr std::array<OptionSpec, 1> kOptions = {{{"--json"}}};
  const auto parsed = parseCommandLine("index", args, kOptions, 1, 1, err);
  if (!parsed) return kExitFailure;
  const std::string& path = parsed->positionals.front();
  auto mmap = storage::MMapWrapper::open(path);
  if (!mmap) {
    err << "quorin-cli: " << mmap.error().describe() << '\n';
    return kExitFailure;
  }
  auto table = std::make_shared<storage::PieceTable>(storage::OriginalBuffer::make(*mmap));

  // Big files go to a scratch file, as in the editor; without a scratch
  // directory the index stays in memory.
  auto scratch = storage::ScratchDirectory::createForDocument();
  std::optional<std::filesystem::path> scratchPath;
  if (scratch) scratchPath = (*scratch)->path();
  const auto tier = storage::chooseLineIndexTier(table->totalLength(), scratchPath);
  storage::LineIndexBuildOptions options;
  if (scratchPath) options.promotion = storage::LiveTierPromotion{20'000'000, *scratchPath / "lineindex.bin"};

  const uint64_t startNs = dispatch::monotonicNanos();
  auto index =
      storage::InMemoryLineIndex::create(table, tier, storage::LineIndexWindow::wholeDocument(), options);
  index->startBuild();
  const double firstPass = secondsSince(startNs);
  {
    const InterruptGuard interrupt([&index] { index->cancel(); });
    const ProgressLine progress(err, [&index] {
      const auto p = index->progress();
      return "indexing " +
             percentText(static_cast<double>(p.bytesScanned), static_cast<double>(p.bytesTotal));
    });
    while (!index->waitUntilComplete(std::chrono::milliseconds(100)) && !interruptRequested()) {
    }
  }
  if (interruptRequested()) return kExitInterrupted;
  const double build = secondsSince(startNs);
  const auto snapshot = index->snapshot();

  if (parsed->has("--json")) {
    JsonWriter json(out);
    json.beginObject()
        .field("path", path)
        .field("bytes", table->totalLength())
        .field("lineCount", snapshot.lineCount())
        .field("tier", index->tierName())
        .field("firstPassSeconds", firstPass)
        .field("buildSeconds", build)
        .endObject();
    out << '\n';
  } else {
    out << "lineCount: " << snapshot.lineCount() << '\n'
        << "tier: " << index->tierName() << '\n'
        << "firstPass: " << milliseconds(firstPass) << " ms\n"
        << "build: " << milliseconds(build) << " ms\n";
  }
  return kExitOk;
}

}  // namespace quorin::cli
