#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <random>
#include <thread>

#include "storage/DiskBackedLineOffsets.h"
#include "storage/InMemoryLineOffsets.h"
#include "storage/LineIndexTier.h"
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
  std::vector<int64_t> out;
  for (int64_t i = 0; i < n; ++i) out.push_back(from + i);
  return out;
}

void modelSplice(std::vector<int64_t>& model, int64_t low, int64_t high, const std::vector<int64_t>& batch,
                 int64_t delta) {
  const auto [l, h] = clampRange(low, high, static_cast<int64_t>(model.size()));
  std::vector<int64_t> next(model.begin(), model.begin() + l);
  next.insert(next.end(), batch.begin(), batch.end());
  for (auto it = model.begin() + h; it != model.end(); ++it) next.push_back(*it + delta);
  model = std::move(next);
}

void expectSame(const LineOffsetStorage& store, const std::vector<int64_t>& model, std::mt19937_64& random) {
  const auto n = static_cast<int64_t>(model.size());
  ASSERT_EQ(store.count(), n);
  ASSERT_EQ(store.entries(-5, n + 5), model);
  const int64_t probe = std::uniform_int_distribution<int64_t>(-2, n + 1)(random);
  const bool inside = probe >= 0 && probe < n;
  EXPECT_EQ(store.entry(probe), inside ? std::optional(model[static_cast<size_t>(probe)]) : std::nullopt);
  const int64_t low = std::uniform_int_distribution<int64_t>(-3, n + 3)(random);
  const int64_t high = std::uniform_int_distribution<int64_t>(-3, n + 3)(random);
  const auto [l, h] = clampRange(low, high, n);
  EXPECT_EQ(store.entries(low, high), std::vector<int64_t>(model.begin() + l, model.begin() + h));
}

// Runs the same random appends, splices and clears against `store` and a plain vector.
void runModel(LineOffsetStorage& store, uint64_t seed) {
  std::mt19937_64 random(seed);
  std::vector<int64_t> model;
  auto upTo = [&](int64_t max) { return std::uniform_int_distribution<int64_t>(0, max)(random); };
  for (int step = 0; step < 400; ++step) {
    const int64_t n = static_cast<int64_t>(model.size());
    const int64_t op = upTo(99);
    const auto batch = sequence(upTo(1'000'000), upTo(op < 60 ? 700 : 40));
    if (op < 60) {
      ASSERT_TRUE(store.append(batch));
      model.insert(model.end(), batch.begin(), batch.end());
    } else if (op < 98) {
      const int64_t low = upTo(n + 2) - 1, high = low + upTo(30) - 3, delta = upTo(2000) - 1000;
      ASSERT_TRUE(store.splice(low, high, batch, delta));
      modelSplice(model, low, high, batch, delta);
    } else {
      store.removeAll();
      model.clear();
    }
    ASSERT_NO_FATAL_FAILURE(expectSame(store, model, random)) << "step " << step;
  }
}

TEST(LineOffsetStorageModel, InMemoryMatchesVector) {
  for (uint64_t seed = 1; seed <= 3; ++seed) {
    InMemoryLineOffsets store;
    ASSERT_NO_FATAL_FAILURE(runModel(store, seed));
  }
}

TEST(LineOffsetStorageModel, DiskBackedMatchesVectorWhileGrowing) {
  TempDir dir;
  for (uint64_t seed = 1; seed <= 3; ++seed) {
    auto store = diskStore(dir.path() / "lineindex.bin");
    ASSERT_NO_FATAL_FAILURE(runModel(*store, seed));
    EXPECT_GT(store->capacity(), 1024 * 3 / 2 * 3 / 2 * 3 / 2);
  }
}

TEST(LineOffsetStorageDiskBacked, FileSizeGrowthModeAndRemoval) {
  TempDir dir;
  const fs::path path = dir.path() / "lineindex.bin";
  {
    auto store = diskStore(path, 10);
    EXPECT_EQ(store->capacity(), 1024);
    EXPECT_EQ(fs::file_size(path), 8192u);
    struct stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);

    ASSERT_TRUE(store->append(sequence(0, 1024)));
    EXPECT_EQ(store->capacity(), 1024);
    ASSERT_TRUE(store->append(sequence(1024, 1)));
    EXPECT_EQ(store->capacity(), 1536);
    EXPECT_EQ(fs::file_size(path), 12288u);
    EXPECT_EQ(store->entries(1020, 2000), sequence(1020, 5));
  }
  EXPECT_FALSE(fs::exists(path));
}

// A file-size limit makes the growth's preallocation fail like a full disk would.
TEST(LineOffsetStorageDiskBacked, FailedGrowthIsLoggedAndLeavesStoreIntact) {
  TempDir dir;
  const fs::path path = dir.path() / "lineindex.bin";
  auto store = diskStore(path, 10);
  ASSERT_TRUE(store->append(sequence(0, 1024)));

  rlimit saved{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &saved), 0);
  auto* savedHandler = ::signal(SIGXFSZ, SIG_IGN);
  rlimit limited = saved;
  limited.rlim_cur = 10'000;
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limited), 0);
  ::testing::internal::CaptureStderr();
  const bool appended = store->append(sequence(1024, 1));
  const bool spliced = store->splice(0, 0, sequence(-5, 3), 0);
  const std::string log = ::testing::internal::GetCapturedStderr();
  ::setrlimit(RLIMIT_FSIZE, &saved);
  ::signal(SIGXFSZ, savedHandler);

  EXPECT_FALSE(appended);
  EXPECT_FALSE(spliced);
  EXPECT_NE(log.find("[Quorin] line-index scratch grow failed (preallocate): File too large"), std::string::npos)
      << log;
  EXPECT_EQ(store->capacity(), 1024);
  EXPECT_EQ(fs::file_size(path), 8192u);
  EXPECT_EQ(store->entries(0, 2000), sequence(0, 1024));
  ASSERT_TRUE(store->append(sequence(1024, 1)));
  EXPECT_EQ(store->count(), 1025);
}

TEST(LineOffsetStorageDiskBacked, UncreatableScratchFileFallsBackToMemory) {
  TempDir dir;
  const fs::path path = dir.path() / "missing" / "lineindex.bin";
  auto made = DiskBackedLineOffsets::create(path, 100);
  ASSERT_FALSE(made);
  EXPECT_EQ(made.error().kind, LineOffsetStorageError::Kind::open);
  EXPECT_EQ(made.error().describe(), "open(" + path.string() + ") failed: No such file or directory");

  auto store = makeLineOffsetStorage(LineIndexTier::diskBacked(path, 100));
  EXPECT_EQ(store.fallbackReason, made.error().describe());
  ASSERT_NE(dynamic_cast<InMemoryLineOffsets*>(store.storage.get()), nullptr);
  EXPECT_TRUE(store.storage->append(sequence(0, 3)));
  EXPECT_EQ(store.storage->count(), 3);
}

TEST(LineOffsetStorageHandOver, CopiesEverythingAndLeavesSourceAlone) {
  TempDir dir;
  InMemoryLineOffsets memory;
  ASSERT_TRUE(memory.append(sequence(0, 5000)));
  auto disk = diskStore(dir.path() / "lineindex.bin");
  ASSERT_TRUE(disk->append(sequence(-9, 3)));  // replaced, not kept

  ASSERT_TRUE(memory.handOver(*disk));
  EXPECT_EQ(disk->entries(0, disk->count()), sequence(0, 5000));
  EXPECT_EQ(memory.count(), 5000);

  InMemoryLineOffsets back;
  ASSERT_TRUE(disk->handOver(back));
  EXPECT_EQ(back.entries(0, back.count()), sequence(0, 5000));
  EXPECT_TRUE(back.handOver(back));
  EXPECT_EQ(back.count(), 5000);
}

TEST(LineOffsetStorageConcurrency, ReadersSeeWholeBatchesWhileStoreGrows) {
  TempDir dir;
  auto store = diskStore(dir.path() / "lineindex.bin");
  constexpr int64_t kBatch = 100, kBatches = 400;
  std::atomic<bool> done = false;
  std::vector<std::thread> readers;
  std::atomic<int> faults = 0;
  for (int r = 0; r < 3; ++r) {
    readers.emplace_back([&] {
      while (!done) {
        const int64_t n = store->count();
        if (n % kBatch != 0) ++faults;
        if (n > 0 && store->entry(n - 1) != n - 1) ++faults;
        const auto tail = store->entries(n - 50, n);
        for (size_t i = 0; i < tail.size(); ++i) {
          if (tail[i] != n - static_cast<int64_t>(tail.size()) + static_cast<int64_t>(i)) ++faults;
        }
      }
    });
  }
  for (int64_t b = 0; b < kBatches; ++b) ASSERT_TRUE(store->append(sequence(b * kBatch, kBatch)));
  done = true;
  for (auto& reader : readers) reader.join();
  EXPECT_EQ(faults, 0);
  EXPECT_EQ(store->count(), kBatch * kBatches);
}

TEST(LineIndexTierChoice, BoundaryAndScratchDirectory) {
  const fs::path scratch = "/scratch/doc-1";
  EXPECT_EQ(chooseLineIndexTier(1'599'999'919, scratch), LineIndexTier::inMemory());
  EXPECT_EQ(chooseLineIndexTier(1'599'999'920, scratch),
            LineIndexTier::diskBacked(scratch / "lineindex.bin", 24'000'000));
  EXPECT_EQ(chooseLineIndexTier(1'599'999'920, std::nullopt), LineIndexTier::inMemory());
  EXPECT_EQ(chooseLineIndexTier(0, scratch), LineIndexTier::inMemory());
}

}  // namespace
}  // namespace quorin::storage
