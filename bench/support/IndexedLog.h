#pragma once

// The start every log benchmark shares: FILE mapped, its line index built to
// the end (not timed), and the "--threads N --reps N" options after it.
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "dispatch/Processors.h"
#include "logs/LogIndex.h"
#include "storage/InMemoryLineIndex.h"
#include "storage/MMapWrapper.h"
#include "storage/OriginalBuffer.h"
#include "storage/PieceTable.h"

namespace quorin::bench {

struct IndexedLog {
  std::shared_ptr<storage::PieceTable> table;
  std::shared_ptr<storage::InMemoryLineIndex> lines;
  size_t threads = dispatch::activeProcessorCount();
  int reps = 3;

  logs::LogSource source() const { return {table->snapshot(), lines->snapshot()}; }
};

// None (after printing why) when the arguments or the file are wrong.
inline std::optional<IndexedLog> openIndexedLog(int argc, char** argv, const char* name) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s FILE [--threads N] [--reps N]\n", name);
    return std::nullopt;
  }
  IndexedLog log;
  for (int i = 2; i + 1 < argc; i += 2) {
    if (std::strcmp(argv[i], "--threads") == 0) log.threads = std::stoul(argv[i + 1]);
    if (std::strcmp(argv[i], "--reps") == 0) log.reps = std::stoi(argv[i + 1]);
  }
  auto mapped = storage::MMapWrapper::open(argv[1]);
  if (!mapped) {
    std::fprintf(stderr, "%s\n", mapped.error().describe().c_str());
    return std::nullopt;
  }
  log.table = std::make_shared<storage::PieceTable>(storage::OriginalBuffer::make(*mapped));
  log.lines = storage::InMemoryLineIndex::create(log.table, storage::LineIndexTier::inMemory(),
                                                 storage::LineIndexWindow::wholeDocument(), {});
  log.lines->startBuild();
  log.lines->waitUntilComplete(std::chrono::hours(1));
  return log;
}

}  // namespace quorin::bench
