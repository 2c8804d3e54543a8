// quorin-bench-logindex FILE [--threads N] [--reps N]
//
// The log index of FILE over a complete line index, as a document builds it
// after opening: one JSON line with the median seconds of the index alone
// (the line index is built first and not counted), the lines, and the
// memory the index adds: its data, and the peak of anonymous memory
// (the file's mapped pages excluded) above what the line index holds.
// bench/run times `wc -l` and lnav on the same file for the ratios.
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "dispatch/WorkerPool.h"
#include "logs/LogIndex.h"
#include "storage/InMemoryLineIndex.h"
#include "storage/MMapWrapper.h"
#include "storage/OriginalBuffer.h"
#include "storage/PieceTable.h"
#include "support/IndexedLog.h"

namespace {

using namespace quorin;

// Anonymous resident memory (heap, stacks), without the file's pages.
int64_t anonymousBytes() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("RssAnon:", 0) == 0) return std::stoll(line.substr(8)) * 1024;
  }
  return 0;
}

int64_t dataBytes(const logs::LogIndexData& data) {
  int64_t bytes = static_cast<int64_t>(data.blocks.capacity() * sizeof(logs::LogBlock));
  for (const auto& lines : data.alertLines)
    bytes += static_cast<int64_t>(lines.capacity() * sizeof(uint32_t));
  return bytes;
}

double cpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  auto seconds = [](timeval t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

}  // namespace

int main(int argc, char** argv) {
  const auto log = bench::openIndexedLog(argc, argv, "quorin-bench-logindex");
  if (!log) return 2;
  const logs::LogSource source = log->source();
  const size_t threads = log->threads;
  const int reps = log->reps;
  dispatch::WorkerPool pool(threads);

  std::vector<double> seconds;
  std::vector<double> cpu;
  int64_t peakAbove = 0;
  int64_t indexBytes = 0;
  logs::LogIndexData data;
  for (int rep = 0; rep < reps; ++rep) {
    data = {};
    const int64_t before = anonymousBytes();
    std::atomic<bool> done{false};
    std::atomic<int64_t> peak{before};
    std::thread sampler([&] {
      while (!done.load()) {
        peak.store(std::max(peak.load(), anonymousBytes()));
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
      }
    });
    const double cpuStart = cpuSeconds();
    const auto start = std::chrono::steady_clock::now();
    data = logs::buildLogIndex(source, logs::SeverityRules(), {.modificationYear = 2026}, &pool);
    seconds.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    cpu.push_back(cpuSeconds() - cpuStart);
    done.store(true);
    sampler.join();
    peakAbove = std::max(peakAbove, std::max(peak.load(), anonymousBytes()) - before);
    indexBytes = dataBytes(data);
  }
  std::sort(seconds.begin(), seconds.end());
  std::sort(cpu.begin(), cpu.end());
  const auto alerts = data.messageCounts(0, data.linesIndexed);
  std::printf(
      "{\"seconds\": %.6f, \"cpuSeconds\": %.6f, \"lines\": %lld, \"threads\": %zu, \"format\": \"%s\", "
      "\"timedLines\": %lld, "
      "\"errors\": %lld, \"indexBytes\": %lld, \"peakAnonymousAboveBytes\": %lld}\n",
      seconds[seconds.size() / 2], cpu[cpu.size() / 2], static_cast<long long>(data.linesIndexed), threads,
      data.format ? std::string(logs::name(*data.format)).c_str() : "none",
      static_cast<long long>(data.timedLines),
      static_cast<long long>(alerts[logs::levelSlot(logs::Level::error)]), static_cast<long long>(indexBytes),
      static_cast<long long>(peakAbove));
  return 0;
}
