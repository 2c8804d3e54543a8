#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace quorin::search {

// Finds one needle in byte buffers, fast: the vector loop looks for the
// needle's two rarest bytes (by a frequency table of typical text) at their
// offsets at once, 32 positions per step, and compares the whole needle only
// where both agree. AVX2 when the processor has it, SSE2 otherwise.
//
// Immutable after construction; find() may run on any number of threads.
class ByteFinder {
 public:
  static constexpr size_t npos = static_cast<size_t>(-1);

  explicit ByteFinder(std::string needle);

  const std::string& needle() const { return needle_; }
  size_t size() const { return needle_.size(); }
  // The offset of the first occurrence in [0, length), or npos. An empty
  // needle is found at 0.
  size_t find(const uint8_t* haystack, size_t length) const;
  // Offsets within the needle of the two bytes the vector loop tests.
  size_t rareOffset1() const { return rare1_; }
  size_t rareOffset2() const { return rare2_; }

 private:
  std::string needle_;
  size_t rare1_ = 0;  // offsets within the needle of its two rarest bytes
  size_t rare2_ = 0;
  size_t (*vectorFind_)(const ByteFinder&, const uint8_t*, size_t) = nullptr;
};

// The number of `byte`s in [data, data + length).
size_t countByte(const uint8_t* data, size_t length, uint8_t byte);

// How many bytes from the start are ASCII (below 0x80).
size_t asciiPrefixLength(const uint8_t* data, size_t length);

// Lower-cases ASCII letters in place; every other byte is left alone.
void asciiLowerInPlace(uint8_t* data, size_t length);
std::string asciiLower(std::string_view text);

// Letters, digits and "_" of ASCII, and every byte of a multi-byte UTF-8
// character, so that a word in any script is a word.
inline bool isWordByte(uint8_t b) {
  return b >= 0x80 || (b >= '0' && b <= '9') || (b >= 'A' && b <= 'Z') || (b >= 'a' && b <= 'z') || b == '_';
}

}  // namespace quorin::search
