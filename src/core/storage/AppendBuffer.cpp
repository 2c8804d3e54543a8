#include "storage/AppendBuffer.h"

#include <algorithm>
#include <cstring>

namespace quorin::storage {

ByteRange AppendBuffer::append(std::string_view bytes) {
  base::MutexLock lock(lock_);
  const int64_t start = size_;
  size_t done = 0;
  while (done < bytes.size()) {
    const int64_t inBlock = size_ % kBlockSize;
    if (inBlock == 0 && size_ / kBlockSize == static_cast<int64_t>(blocks_.size()))
      blocks_.push_back(std::make_unique_for_overwrite<uint8_t[]>(kBlockSize));
    const size_t chunk = std::min(bytes.size() - done, static_cast<size_t>(kBlockSize - inBlock));
    std::memcpy(blocks_[static_cast<size_t>(size_ / kBlockSize)].get() + inBlock, bytes.data() + done, chunk);
    done += chunk;
    size_ += static_cast<int64_t>(chunk);
  }
  return {start, size_};
}

std::optional<uint8_t> AppendBuffer::byteAt(int64_t offset) const {
  base::MutexLock lock(lock_);
  if (offset < 0 || offset >= size_) return std::nullopt;
  return blocks_[static_cast<size_t>(offset / kBlockSize)][static_cast<size_t>(offset % kBlockSize)];
}

int64_t AppendBuffer::copy(int64_t start, int64_t end, uint8_t* dest) const {
  base::MutexLock lock(lock_);
  start = std::max<int64_t>(start, 0);
  end = std::min(end, size_);
  int64_t at = start;
  while (at < end) {
    const int64_t inBlock = at % kBlockSize;
    const int64_t chunk = std::min(end - at, kBlockSize - inBlock);
    std::memcpy(dest + (at - start), blocks_[static_cast<size_t>(at / kBlockSize)].get() + inBlock,
                static_cast<size_t>(chunk));
    at += chunk;
  }
  return std::max<int64_t>(end - start, 0);
}

int64_t AppendBuffer::size() const {
  base::MutexLock lock(lock_);
  return size_;
}

}  // namespace quorin::storage
