#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "search/SearchEngine.h"
#include "storage/InMemoryLineIndex.h"
#include "storage/StorageTestSupport.h"
#include "support/ManualExecutor.h"

namespace quorin::search {

// A document on disk with its piece table and a line index.
struct SearchDoc {
  testing::TempDir dir;
  std::shared_ptr<storage::PieceTable> table;
  std::shared_ptr<storage::InMemoryLineIndex> index;

  // completeIndex false: only the first few lines get indexed.
  explicit SearchDoc(std::string_view text, bool completeIndex = true) {
    table = std::make_shared<storage::PieceTable>(testing::bufferOver(dir, text));
    storage::LineIndexBuildOptions options;
    if (!completeIndex) {
      options.queue = std::make_shared<testing::ManualExecutor>();  // never pumped
      options.limits.firstPassLines = 3;
      options.limits.firstPassBytes = 64;
      options.limits.chunkBytes = 16;
    }
    index = storage::InMemoryLineIndex::create(table, storage::LineIndexTier::inMemory(),
                                               storage::LineIndexWindow::wholeDocument(), options);
    index->startBuild();
    if (completeIndex) index->waitUntilComplete(std::chrono::seconds(30));
  }

  SearchResult search(const SearchOptions& options, int64_t cap = kFindBarMatchCap, SearchLimits limits = {},
                      dispatch::WorkerPool* pool = nullptr) const {
    SearchCancellation cancellation;
    return SearchEngine(limits, pool)
        .search(cap, options, table->snapshot(), index->snapshot(), cancellation);
  }
};

inline SearchOptions plain(std::string query) { return {.query = std::move(query)}; }
inline SearchOptions regex(std::string query) { return {.query = std::move(query), .regex = true}; }

}  // namespace quorin::search
