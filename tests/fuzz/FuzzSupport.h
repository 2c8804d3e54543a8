#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>

// A failed invariant is a finding: report it and abort, which both libFuzzer
// and the corpus replay treat as a crash.
#define FUZZ_CHECK(condition)                                                                \
  do {                                                                                       \
    if (!(condition)) {                                                                      \
      std::fprintf(stderr, "%s:%d: invariant failed: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                          \
    }                                                                                        \
  } while (false)

namespace quorin::fuzz {

// Splits a fuzz input into the parameters a target needs: small numbers
// are taken from the front, the rest is the payload.
class InputReader {
 public:
  InputReader(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  uint8_t byte() {
    if (size_ == 0) return 0;
    --size_;
    return *data_++;
  }
  bool flag() { return (byte() & 1) != 0; }
  // 0…limit-1 (limit > 0).
  size_t below(size_t limit) {
    const size_t value = static_cast<size_t>(byte()) | static_cast<size_t>(byte()) << 8;
    return value % limit;
  }
  // Up to `maximum` bytes, the length given by the input.
  std::string_view chunk(size_t maximum) {
    const size_t length = std::min(below(maximum + 1), size_);
    const std::string_view out(reinterpret_cast<const char*>(data_), length);
    data_ += length;
    size_ -= length;
    return out;
  }
  std::string_view rest() {
    const std::string_view out(reinterpret_cast<const char*>(data_), size_);
    data_ += size_;
    size_ = 0;
    return out;
  }
  size_t remaining() const { return size_; }

 private:
  const uint8_t* data_;
  size_t size_;
};

inline std::span<const uint8_t> bytesOf(std::string_view text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

}  // namespace quorin::fuzz
