#include "storage/LineIndexTier.h"

#include "storage/DiskBackedLineOffsets.h"
#include "storage/InMemoryLineOffsets.h"

namespace quorin::storage {
namespace {

constexpr int64_t kAssumedBytesPerLine = 80;
// 20 million line starts are 160 MB of memory: from there on, let the kernel page them out.
constexpr int64_t kDiskBackedLines = 20'000'000;

}  // namespace

LineIndexTier chooseLineIndexTier(int64_t documentLength,
                                  std::optional<std::filesystem::path> scratchDirectory) {
  const int64_t estimatedLines = documentLength / kAssumedBytesPerLine + 1;
  if (estimatedLines < kDiskBackedLines || !scratchDirectory) return LineIndexTier::inMemory();
  return LineIndexTier::diskBacked(*scratchDirectory / "lineindex.bin", estimatedLines * 12 / 10);
}

LineOffsetStore makeLineOffsetStorage(const LineIndexTier& tier) {
  if (tier.kind == LineIndexTier::Kind::diskBacked) {
    auto disk = DiskBackedLineOffsets::create(tier.scratchPath, tier.initialCapacity);
    if (disk) return {std::move(*disk), std::nullopt};
    return {std::make_unique<InMemoryLineOffsets>(), disk.error().describe()};
  }
  return {std::make_unique<InMemoryLineOffsets>(), std::nullopt};
}

}  // namespace quorin::storage
