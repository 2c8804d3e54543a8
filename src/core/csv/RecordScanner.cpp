#include "csv/RecordScanner.h"

#include <algorithm>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace quorin::csv {
namespace {

using Quote = RecordScanner::Quote;

// The transitions for one byte at absolute offset `at`. Shared by both
// scanning loops so that they cannot disagree.
template <class State>
inline void step(State& s, uint8_t c, int64_t at, uint8_t delimiter, uint8_t terminator,
                 std::vector<ScannedRecord>& out) {
  auto endRecord = [&] {
    out.push_back({s.recordStart, s.fieldCount, s.malformed});
    s.quote = Quote::outside;
    s.fieldCount = 1;
    s.malformed = false;
    s.atFieldStart = true;
    s.recordStart = at + 1;
  };
  switch (s.quote) {
    case Quote::outside:
      if (c == kQuote) {
        if (s.atFieldStart) s.quote = Quote::inside;
        s.atFieldStart = false;
      } else if (c == delimiter) {
        ++s.fieldCount;
        s.atFieldStart = true;
      } else if (c == terminator) {
        endRecord();
      } else if (c != kCR) {
        s.atFieldStart = false;
      }
      break;
    case Quote::inside:
      if (c == kQuote) s.quote = Quote::quoteSeen;
      break;
    case Quote::quoteSeen:
      if (c == kQuote) {
        s.quote = Quote::inside;
      } else if (c == delimiter) {
        s.quote = Quote::outside;
        ++s.fieldCount;
        s.atFieldStart = true;
      } else if (c == terminator) {
        endRecord();
      } else if (c == kCR) {
        s.quote = Quote::crAfterQuote;
      } else {
        s.quote = Quote::outside;
        s.atFieldStart = false;
        s.malformed = true;
      }
      break;
    case Quote::crAfterQuote:
      s.quote = Quote::outside;
      if (c == terminator) {
        endRecord();
      } else {
        s.malformed = true;
        s.atFieldStart = false;
      }
      break;
  }
}

// Which bytes of a block of up to 64 are quotes, delimiters, terminators
// and CRs: bit i stands for byte i.
struct BlockMasks {
  uint64_t quotes = 0, delimiters = 0, terminators = 0, crs = 0;
};

#if defined(__SSE2__)
inline uint64_t mask16(__m128i chunk, __m128i needle) {
  return static_cast<uint16_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(chunk, needle)));
}

inline BlockMasks masksOf64(const uint8_t* data, uint8_t delimiter, uint8_t terminator) {
  const __m128i quote = _mm_set1_epi8(static_cast<char>(kQuote));
  const __m128i delim = _mm_set1_epi8(static_cast<char>(delimiter));
  const __m128i term = _mm_set1_epi8(static_cast<char>(terminator));
  const __m128i cr = _mm_set1_epi8(static_cast<char>(kCR));
  BlockMasks m;
  for (int part = 0; part < 4; ++part) {
    const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + 16 * part));
    const int shift = 16 * part;
    m.quotes |= mask16(chunk, quote) << shift;
    m.delimiters |= mask16(chunk, delim) << shift;
    m.terminators |= mask16(chunk, term) << shift;
    m.crs |= mask16(chunk, cr) << shift;
  }
  return m;
}
#endif

inline BlockMasks masksOf(const uint8_t* data, size_t length, uint8_t delimiter, uint8_t terminator) {
#if defined(__SSE2__)
  if (length == 64) return masksOf64(data, delimiter, terminator);
#endif
  BlockMasks m;
  for (size_t i = 0; i < length; ++i) {
    const uint64_t bit = uint64_t{1} << i;
    if (data[i] == kQuote) m.quotes |= bit;
    if (data[i] == delimiter) m.delimiters |= bit;
    if (data[i] == terminator) m.terminators |= bit;
    if (data[i] == kCR) m.crs |= bit;
  }
  return m;
}

// Without -mpopcnt (the x86-64 baseline) __builtin_popcountll is a libgcc
// call; this stays inline.
inline int popcount64(uint64_t x) {
  x -= (x >> 1) & 0x5555555555555555ULL;
  x = (x & 0x3333333333333333ULL) + ((x >> 2) & 0x3333333333333333ULL);
  x = (x + (x >> 4)) & 0x0F0F0F0F0F0F0F0FULL;
  return static_cast<int>((x * 0x0101010101010101ULL) >> 56);
}

// Bits [from, 64).
inline uint64_t bitsFrom(size_t from) { return from >= 64 ? 0 : ~uint64_t{0} << from; }

}  // namespace

// Outside quotes, only quotes and terminators are handled one by one: the
// delimiters in between are counted with popcount, and whether a quote opens
// a field follows from the last byte before it that is not a CR. Inside
// quotes the walk jumps from quote to quote, and the byte after a closing
// quote (and after a CR there) goes through the transitions by itself. So a
// typical row costs one step for its line end and two per quoted field.
void RecordScanner::scan(std::span<const uint8_t> bytes, std::vector<ScannedRecord>& out) {
  // Delimiters that collide with the bytes the walk treats specially only
  // come from code that skips customDelimiter(); the reference loop copes.
  if (delimiter_ == kQuote || delimiter_ == kCR || delimiter_ == terminator_) return scanBytewise(bytes, out);

  State s = state_;  // a local copy stays in registers through the loop
  const int64_t base = s.next;
  const size_t size = bytes.size();
  for (size_t blockStart = 0; blockStart < size; blockStart += 64) {
    const uint8_t* block = bytes.data() + blockStart;
    const size_t length = std::min<size_t>(64, size - blockStart);
    const BlockMasks m = masksOf(block, length, delimiter_, terminator_);
    const uint64_t valid = length == 64 ? ~uint64_t{0} : (uint64_t{1} << length) - 1;
    const uint64_t events = (m.quotes | m.terminators) & valid;
    const int64_t blockOffset = base + static_cast<int64_t>(blockStart);
    size_t pos = 0;  // the bytes of the block before pos have been applied
    while (pos < length) {
      switch (s.quote) {
        case Quote::inside: {
          const uint64_t next = m.quotes & valid & bitsFrom(pos);
          if (next == 0) {
            pos = length;
          } else {
            pos = static_cast<size_t>(__builtin_ctzll(next)) + 1;
            s.quote = Quote::quoteSeen;
          }
          break;
        }
        case Quote::quoteSeen:
        case Quote::crAfterQuote:
          step(s, block[pos], blockOffset + static_cast<int64_t>(pos), delimiter_, terminator_, out);
          ++pos;
          break;
        case Quote::outside: {
          const uint64_t next = events & bitsFrom(pos);
          const size_t end = next == 0 ? length : static_cast<size_t>(__builtin_ctzll(next));
          // The run [pos, end) holds no quote and no terminator.
          const uint64_t run = bitsFrom(pos) & ~bitsFrom(end);
          s.fieldCount += popcount64(m.delimiters & run);
          const uint64_t lastNonCR = run & ~m.crs;
          if (lastNonCR != 0) s.atFieldStart = (m.delimiters >> (63 - __builtin_clzll(lastNonCR))) & 1;
          if (end < length)
            step(s, block[end], blockOffset + static_cast<int64_t>(end), delimiter_, terminator_, out);
          pos = end + 1;
          break;
        }
      }
    }
  }
  s.next = base + static_cast<int64_t>(size);
  state_ = s;
}

void RecordScanner::scanBytewise(std::span<const uint8_t> bytes, std::vector<ScannedRecord>& out,
                                 size_t maxRecords) {
  for (const uint8_t c : bytes) {
    if (out.size() >= maxRecords) return;
    step(state_, c, state_.next, delimiter_, terminator_, out);
    ++state_.next;
  }
}

std::optional<ScannedRecord> RecordScanner::trailingRecord() const {
  if (state_.recordStart >= state_.next) return std::nullopt;
  return ScannedRecord{state_.recordStart, state_.fieldCount,
                       state_.malformed || state_.quote == Quote::inside};
}

}  // namespace quorin::csv
