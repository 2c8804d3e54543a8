#include "storage/LineScanner.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace quorin::storage {

LineScanResult scanLineStarts(const PieceTableSnapshot& text, const LineScanRequest& request,
                              const std::function<bool()>& shouldStop) {
  LineScanResult result;
  result.scannedTo = request.from;
  if (request.to <= request.from || request.maxLines <= 0) return result;

  const int64_t chunkBytes = std::max<int64_t>(request.chunkBytes, 1);
  const auto buffer = std::make_unique_for_overwrite<uint8_t[]>(static_cast<size_t>(chunkBytes));
  auto keep = [&](int64_t start) {
    return start < request.baseEnd || (start == request.baseEnd && request.startAtEndCounts);
  };

  for (int64_t chunkStart = request.from; chunkStart < request.to; chunkStart += chunkBytes) {
    const int64_t chunkEnd = std::min(chunkStart + chunkBytes, request.to);
    const int64_t got = text.copyBytes({chunkStart + request.readShift, chunkEnd + request.readShift}, buffer.get());
    ++result.chunks;
    const uint8_t* p = buffer.get();
    const uint8_t* end = p + got;
    while (p < end) {
      const auto* hit = static_cast<const uint8_t*>(std::memchr(p, request.terminator, static_cast<size_t>(end - p)));
      if (hit == nullptr) break;
      const int64_t start = chunkStart + (hit - buffer.get()) + 1;
      p = hit + 1;
      if (!keep(start)) continue;
      result.starts.push_back(start);
      if (static_cast<int64_t>(result.starts.size()) >= request.maxLines) {
        result.scannedTo = start;
        return result;
      }
    }
    result.scannedTo = chunkEnd;
    if (request.chunksPerCheck > 0 && result.chunks % request.chunksPerCheck == 0 && chunkEnd < request.to &&
        shouldStop()) {
      result.stopped = true;
      return result;
    }
  }
  return result;
}

}  // namespace quorin::storage
