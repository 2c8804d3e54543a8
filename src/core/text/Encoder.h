#pragma once

#include <cstdint>
#include <expected>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "text/DetectedEncoding.h"
#include "text/IcuConverter.h"

namespace quorin::text {

// The first character of the text that the target encoding has no bytes for.
struct Unrepresentable {
  int64_t utf8Offset;  // byte offset of the character in the whole UTF-8 input
  char32_t codePoint;
  bool operator==(const Unrepresentable&) const = default;
};

// Encodes UTF-8 text into a document's own encoding for saving, piece by
// piece: a character split between two pieces encodes as if they were one.
//
// Nothing is ever approximated: a character the target cannot represent
// (no best-fit or fallback mappings, so "€" does not become "E" or "?") stops
// the encoding and is reported, so the save can refuse rather than change the
// user's text. Invalid UTF-8 in the input (which a working copy only holds if
// decoding substituted U+FFFD anyway) is encoded as U+FFFD, one per maximal
// invalid subpart; legacy targets other than GB18030 cannot represent U+FFFD,
// so a document that needed substitutions at open refuses to save over its
// source in those encodings.
//
// Single-use, not thread-safe.
class Encoder {
 public:
  // With writeByteOrderMark, the target's mark (if it has one) begins the
  // output: pass it when the source file began with one.
  Encoder(DetectedEncoding target, bool writeByteOrderMark);
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;

  // Appends the encoding of the next piece to `out`. Pass last = true with
  // the final piece (which may be empty); a sequence cut off at the very end
  // then becomes U+FFFD. After an Unrepresentable result the encoder must
  // not be used again; what `out` received by then is of no use.
  std::expected<void, Unrepresentable> encode(std::span<const uint8_t> utf8, bool last, std::string& out);

 private:
  void encodeAsUtf8(std::span<const uint8_t> bytes, bool last, std::string& out);
  std::expected<void, Unrepresentable> encodeWithIcu(std::span<const uint8_t> bytes, int64_t baseOffset,
                                                     bool last, std::string& out);
  std::expected<void, Unrepresentable> flushUnits(bool last, std::string& out);

  DetectedEncoding target_;
  IcuConverter converter_;
  bool markPending_;
  std::vector<uint8_t> carry_;        // a sequence cut off at the end of the previous piece
  int64_t consumed_ = 0;              // input bytes seen before the current piece, carry included
  std::vector<char16_t> units_;       // decoded text not yet handed to ICU
  std::vector<int64_t> unitOffsets_;  // the UTF-8 offset of each unit's character
};

// Encodes a whole string: the mark (when asked for) and the text.
std::expected<std::string, Unrepresentable> encodeUtf8(std::string_view utf8, DetectedEncoding target,
                                                       bool writeByteOrderMark = false);

}  // namespace quorin::text
