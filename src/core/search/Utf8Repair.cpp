#include "search/Utf8Repair.h"

#include <algorithm>
#include <cstring>

#include "search/ByteSearch.h"

namespace quorin::search {

size_t decodeUtf8(const uint8_t* data, size_t available, char32_t& scalar) {
  if (available == 0) return 0;
  const uint8_t lead = data[0];
  if (lead < 0x80) {
    scalar = lead;
    return 1;
  }
  size_t length = 0;
  char32_t value = 0;
  char32_t minimum = 0;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2, value = lead & 0x1F, minimum = 0x80;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3, value = lead & 0x0F, minimum = 0x800;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4, value = lead & 0x07, minimum = 0x10000;
  } else {
    return 0;
  }
  if (available < length) return 0;
  for (size_t i = 1; i < length; ++i) {
    if ((data[i] & 0xC0) != 0x80) return 0;
    value = (value << 6) | (data[i] & 0x3F);
  }
  if (value < minimum || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) return 0;
  scalar = value;
  return length;
}

bool isValidUtf8(const uint8_t* data, size_t length) {
  size_t i = 0;
  while (i < length) {
    i += asciiPrefixLength(data + i, length - i);
    if (i == length) break;
    char32_t scalar;
    const size_t n = decodeUtf8(data + i, length - i, scalar);
    if (n == 0) return false;
    i += n;
  }
  return true;
}

int64_t RepairedOffsetMap::toOriginal(int64_t repaired) const {
  // Replacement k starts at repaired offset invalidOffsets[k] + 2k.
  size_t low = 0, high = invalidOffsets.size();
  while (low < high) {  // the number of replacements starting before `repaired`
    const size_t mid = (low + high) / 2;
    if (invalidOffsets[mid] + 2 * static_cast<int64_t>(mid) < repaired) {
      low = mid + 1;
    } else {
      high = mid;
    }
  }
  if (low == 0) return repaired;
  const size_t k = low - 1;
  const int64_t replacementStart = invalidOffsets[k] + 2 * static_cast<int64_t>(k);
  if (repaired < replacementStart + 3) return invalidOffsets[k];
  return repaired - 2 * static_cast<int64_t>(low);
}

std::pair<int64_t, int64_t> RepairedOffsetMap::mapMatch(int64_t start, int64_t end) {
  const int64_t from = toOriginal(start);
  const int64_t to = toOriginal(end);
  const auto first = std::lower_bound(invalidOffsets.begin(), invalidOffsets.end(), from);
  if (first != invalidOffsets.end() && *first < to) crossed = true;
  return {from, to};
}

void repairUtf8(const uint8_t* data, size_t length, std::string& out, RepairedOffsetMap& map) {
  out.clear();
  map.invalidOffsets.clear();
  map.crossed = false;
  out.reserve(length + length / 16);
  size_t i = 0;
  while (i < length) {
    size_t run = i;  // copy valid stretches in one go
    char32_t scalar;
    size_t n = 0;
    while (run < length && (n = decodeUtf8(data + run, length - run, scalar)) != 0) run += n;
    out.append(reinterpret_cast<const char*>(data + i), run - i);
    if (run == length) break;
    map.invalidOffsets.push_back(static_cast<int64_t>(run));
    out.append("\xEF\xBF\xBD");
    i = run + 1;
  }
}

}  // namespace quorin::search
