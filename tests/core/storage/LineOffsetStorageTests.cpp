#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <atomic>
#include <filesystem>
#include <numeric>
#include <random>
#include <thread>

#include "storage/DiskBackedLineOffsets.h"
#include "storage/InMemoryLineOffsets.h"
#include "support/TempDir.h"

namespace quorin::storage {
namespace {

namespace fs = std::filesystem;
using testing::TempDir;

std::unique_ptr<DiskBackedLineOffsets> diskStore(const fs::path& path, int64_t capacity = 10) {
  auto made = DiskBackedLineOffsets::create(path, capacity);
  if (!made) throw std::runtime_error(made.error().describe());
  return std::move(*made);
}

std::vector<int64_t> sequence(int64_t from, int64_t n) {
  std::vector<int64_t> out(static_cast<size_t>(n));
  std::iota(out.begin(), out.end(), from);
  return out;
}

// Runs the same random appends, splices and clears against `store` and a plain vector.
void runModel(LineOffsetStorage& store, uint64_t seed) {
  std::mt19937_64 random(seed);
  std::vector<int64_t> model;
  auto pick = [&](int64_t low, int64_t high) {
    return std::uniform_int_distribution<int64_t>(low, high)(random);
  };
  for (int step = 0; step < 400; ++step) {
    auto n = static_cast<int64_t>(model.size());
    const int64_t op = pick(0, 99);
    const auto batch = sequence(pick(0, 1'000'000), pick(0, op < 60 ? 700 : 40));
    if (op < 60) {
      ASSERT_TRUE(store.append(batch));
      model.insert(model.end(), batch.begin(), batch.end());
    } else if (op < 98) {
      const int64_t low = pick(-1, n + 1), high = low + pick(-3, 27), delta = pick(-1000, 1000);
      ASSERT_TRUE(store.splice(low, high, batch, delta));
      const auto [l, h] = clampRange(low, high, n);
      for (auto it = model.begin() + h; it != model.end(); ++it) *it += delta;
      model.insert(model.erase(model.begin() + l, model.begin() + h), batch.begin(), batch.end());
    } else {
      store.removeAll();
      model.clear();
    }
    n = static_cast<int64_t>(model.size());
    ASSERT_EQ(store.count(), n) << "step " << step;
    ASSERT_EQ(store.entries(-5, n + 5), model) << "step " << step;
    const int64_t probe = pick(-2, n + 1);
    EXPECT_EQ(store.entry(probe),
              probe >= 0 && probe < n ? std::optional(model[size_t(probe)]) : std::nullopt);
    const int64_t low = pick(-3, n + 3), high = pick(-3, n + 3);
    const auto [l, h] = clampRange(low, high, n);
    EXPECT_EQ(store.entries(low, high), std::vector<int64_t>(model.begin() + l, model.begin() + h)) << step;
  }
}

TEST(LineOffsetStorageModel, BothStoresMatchVector) {
  TempDir dir;
  for (uint64_t seed = 1; seed <= 3; ++seed) {
    InMemoryLineOffsets memory;
    ASSERT_NO_FATAL_FAILURE(runModel(memory, seed));
    auto disk = diskStore(dir.path() / "lineindex.bin");
    ASSERT_NO_FATAL_FAILURE(runModel(*disk, seed));
    EXPECT_GT(disk->capacity(), 1024 * 3 / 2 * 3 / 2 * 3 / 2);  // the model grew it several times
  }
}

// Growth is first forced to fail by a file-size limit, the way a full disk would fail the preallocation.
TEST(LineOffsetStorageDiskBacked, FileSizeModeGrowthFailedGrowthAndRemoval) {
  TempDir dir;
  const fs::path path = dir.path() / "lineindex.bin";
  {
    auto store = diskStore(path, 10);
    EXPECT_EQ(fs::file_size(path), 8192u);
    EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    ASSERT_TRUE(store->append(sequence(0, 1024)));

    rlimit saved{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &saved), 0);
    auto* savedHandler = ::signal(SIGXFSZ, SIG_IGN);
    const rlimit limited{10'000, saved.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limited), 0);
    ::testing::internal::CaptureStderr();
    const bool appended = store->append(sequence(1024, 1));
    const bool spliced = store->splice(0, 0, sequence(-5, 3), 0);
    const std::string log = ::testing::internal::GetCapturedStderr();
    ::setrlimit(RLIMIT_FSIZE, &saved);
    ::signal(SIGXFSZ, savedHandler);
    EXPECT_FALSE(appended);
    EXPECT_FALSE(spliced);
    EXPECT_NE(log.find("[Quorin] line-index scratch grow failed (preallocate): File too large"),
              std::string::npos)
        << log;
    EXPECT_EQ(store->capacity(), 1024);
    EXPECT_EQ(fs::file_size(path), 8192u);
    EXPECT_EQ(store->entries(0, 2000), sequence(0, 1024));

    ASSERT_TRUE(store->append(sequence(1024, 1)));
    EXPECT_EQ(store->capacity(), 1536);
    EXPECT_EQ(fs::file_size(path), 12288u);
    EXPECT_EQ(store->entries(1020, 2000), sequence(1020, 5));
  }
  EXPECT_FALSE(fs::exists(path));
}

TEST(LineOffsetStorageHandOver, CopiesEverythingAndLeavesSourceAlone) {
  TempDir dir;
  InMemoryLineOffsets memory, back;
  ASSERT_TRUE(memory.append(sequence(0, 5000)));
  auto disk = diskStore(dir.path() / "lineindex.bin");
  ASSERT_TRUE(disk->append(sequence(-9, 3)));  // replaced, not kept
  ASSERT_TRUE(memory.handOver(*disk));
  EXPECT_EQ(disk->entries(0, disk->count()), sequence(0, 5000));
  EXPECT_EQ(memory.count(), 5000);
  ASSERT_TRUE(disk->handOver(back));
  EXPECT_TRUE(back.handOver(back));
  EXPECT_EQ(back.entries(0, back.count()), sequence(0, 5000));
}

TEST(LineOffsetStorageConcurrency, ReadersSeeWholeBatchesWhileStoreGrows) {
  TempDir dir;
  auto store = diskStore(dir.path() / "lineindex.bin");
  constexpr int64_t kBatch = 100, kBatches = 400;
  std::atomic<bool> done = false;
  std::atomic<int> faults = 0;
  std::vector<std::thread> readers;
  for (int r = 0; r < 3; ++r) {
    readers.emplace_back([&] {
      while (!done) {
        const int64_t n = store->count();
        const auto tail = store->entries(n - 50, n);
        if (n % kBatch != 0 || (n > 0 && store->entry(n - 1) != n - 1)) ++faults;
        if (tail != sequence(n - static_cast<int64_t>(tail.size()), static_cast<int64_t>(tail.size())))
          ++faults;
      }
    });
  }
  for (int64_t b = 0; b < kBatches; ++b) ASSERT_TRUE(store->append(sequence(b * kBatch, kBatch)));
  done = true;
  for (auto& reader : readers) reader.join();
  EXPECT_EQ(faults, 0);
  EXPECT_EQ(store->count(), kBatch * kBatches);
}

}  // namespace
}  // namespace quorin::storage
