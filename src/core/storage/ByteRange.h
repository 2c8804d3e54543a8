#pragma once

#include <cstdint>

namespace quorin::storage {

// A half-open range [start, end) of document byte offsets.
struct ByteRange {
  int64_t start = 0;
  int64_t end = 0;

  int64_t length() const { return end - start; }
  bool operator==(const ByteRange&) const = default;
};

}  // namespace quorin::storage
