#include "compare/LineKeys.h"

namespace quorin::compare {
namespace {

constexpr bool isLineBreak(uint8_t b) { return b == '\r' || b == '\n'; }
constexpr bool isBlank(uint8_t b) { return b == ' ' || b == '\t'; }
constexpr uint8_t foldAscii(uint8_t b) { return b >= 'A' && b <= 'Z' ? static_cast<uint8_t>(b + 32) : b; }
constexpr uint64_t mix(uint64_t hash, uint8_t b) { return (hash ^ b) * kFnvPrime; }

}  // namespace

LineKeyBuilder::LineKeyBuilder(LineKeyOptions options)
    : mode_((options.ignoreWhitespace ? 2 : 0) | (options.ignoreCase ? 1 : 0)) {}

// One loop per option combination, so the common case (no options) tests
// nothing per byte but the line-break bytes.
template <bool kIgnoreWhitespace, bool kFold>
void LineKeyBuilder::addBytes(std::string_view bytes) {
  uint64_t hash = hash_;
  bool started = started_;
  bool pendingBlank = pendingBlank_;
  for (const char c : bytes) {
    const auto b = static_cast<uint8_t>(c);
    if (isLineBreak(b)) continue;
    if constexpr (kIgnoreWhitespace) {
      if (isBlank(b)) {
        pendingBlank = started;
        continue;
      }
      if (pendingBlank) {
        hash = mix(hash, ' ');
        pendingBlank = false;
      }
      started = true;
    }
    hash = mix(hash, kFold ? foldAscii(b) : b);
  }
  hash_ = hash;
  started_ = started;
  pendingBlank_ = pendingBlank;
}

void LineKeyBuilder::add(std::string_view bytes) {
  switch (mode_) {
    case 0: addBytes<false, false>(bytes); break;
    case 1: addBytes<false, true>(bytes); break;
    case 2: addBytes<true, false>(bytes); break;
    default: addBytes<true, true>(bytes); break;
  }
}

uint64_t LineKeyBuilder::finish() {
  const uint64_t key = hash_;  // a pending run of blanks is trailing: dropped
  hash_ = kFnvOffsetBasis;
  started_ = false;
  pendingBlank_ = false;
  return key;
}

uint64_t lineKey(std::string_view line, LineKeyOptions options) {
  LineKeyBuilder builder(options);
  builder.add(line);
  return builder.finish();
}

std::vector<uint64_t> lineKeys(std::span<const std::string_view> lines, LineKeyOptions options) {
  std::vector<uint64_t> keys;
  keys.reserve(lines.size());
  LineKeyBuilder builder(options);
  for (const std::string_view line : lines) {
    builder.add(line);
    keys.push_back(builder.finish());
  }
  return keys;
}

}  // namespace quorin::compare
