#include "storage/LineScanner.h"

#include <algorithm>
#include <memory>

#include "base/PageAligned.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace quorin::storage {
namespace {

// Calls onHit(index) for every position of `byte` in [data, data + size), in
// order, until onHit returns false. Lines are short (a log's are ~100–200
// bytes), so a memchr call per line spends much of its time starting up;
// comparing 64 bytes at a time and walking the match bits does not.
template <class OnHit>
void forEachByte(const uint8_t* data, size_t size, uint8_t byte, OnHit onHit) {
  size_t i = 0;
#if defined(__SSE2__)
  const __m128i needle = _mm_set1_epi8(static_cast<char>(byte));
  for (; i + 64 <= size; i += 64) {
    auto mask16 = [&](size_t at) {
      const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + at));
      return static_cast<uint64_t>(static_cast<uint16_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(chunk, needle))));
    };
    uint64_t bits = mask16(i) | (mask16(i + 16) << 16) | (mask16(i + 32) << 32) | (mask16(i + 48) << 48);
    while (bits != 0) {
      if (!onHit(i + static_cast<size_t>(__builtin_ctzll(bits)))) return;
      bits &= bits - 1;
    }
  }
#endif
  for (; i < size; ++i) {
    if (data[i] == byte && !onHit(i)) return;
  }
}

}  // namespace

LineScanResult scanLineStarts(const PieceTableSnapshot& text, const LineScanRequest& request,
                              const std::function<bool()>& shouldStop) {
  LineScanResult result;
  result.scannedTo = request.from;
  if (request.to <= request.from || request.maxLines <= 0) return result;

  const int64_t chunkBytes = std::max<int64_t>(request.chunkBytes, 1);
  base::ReadBuffer buffer(static_cast<size_t>(chunkBytes));
  auto keep = [&](int64_t start) {
    return start < request.baseEnd || (start == request.baseEnd && request.startAtEndCounts);
  };

  for (int64_t chunkStart = request.from; chunkStart < request.to; chunkStart += chunkBytes) {
    const int64_t chunkEnd = std::min(chunkStart + chunkBytes, request.to);
    const int64_t got =
        text.copyBytes({chunkStart + request.readShift, chunkEnd + request.readShift}, buffer.data());
    ++result.chunks;
    bool full = false;
    forEachByte(buffer.data(), static_cast<size_t>(got), request.terminator, [&](size_t at) {
      const int64_t start = chunkStart + static_cast<int64_t>(at) + 1;
      if (!keep(start)) return true;
      result.starts.push_back(start);
      full = static_cast<int64_t>(result.starts.size()) >= request.maxLines;
      return !full;
    });
    if (full) {
      result.scannedTo = result.starts.back();
      return result;
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
