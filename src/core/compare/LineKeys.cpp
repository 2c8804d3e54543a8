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
//
// With ignoreWhitespace, blanks and line-break bytes seen since the last
// other byte are pending: they count only if something follows them (so
// trailing ones drop out). pendingHash_ is the hash as if they counted; a run
// of blanks adds one space to it, and a CR or LF adds itself.
template <bool kIgnoreWhitespace, bool kFold>
void LineKeyBuilder::addBytes(std::string_view bytes) {
  uint64_t hash = hash_;
  uint64_t pendingHash = pendingHash_;
  bool started = started_;
  bool pendingBlank = pendingBlank_;
  bool pending = pending_;
  for (const char c : bytes) {
    const auto b = static_cast<uint8_t>(c);
    if constexpr (kIgnoreWhitespace) {
      if (isBlank(b)) {
        if (!started && !pending) continue;  // leading
        if (!pendingBlank) pendingHash = mix(pending ? pendingHash : hash, ' ');
        pendingBlank = pending = true;
        continue;
      }
      if (isLineBreak(b)) {
        pendingHash = mix(pending ? pendingHash : hash, b);
        pending = true;
        pendingBlank = false;
        continue;
      }
      if (pending) hash = pendingHash;
      pending = pendingBlank = false;
      started = true;
    } else {
      if (isLineBreak(b)) continue;
    }
    hash = mix(hash, kFold ? foldAscii(b) : b);
  }
  hash_ = hash;
  pendingHash_ = pendingHash;
  started_ = started;
  pendingBlank_ = pendingBlank;
  pending_ = pending;
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
  const uint64_t key = hash_;  // pending blanks and line breaks are trailing: dropped
  hash_ = pendingHash_ = kFnvOffsetBasis;
  started_ = pendingBlank_ = pending_ = false;
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
