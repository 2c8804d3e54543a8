#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

#include "text/DetectedEncoding.h"

// ICU's converter type, declared here so that users of this header do not
// need ICU's headers.
struct UConverter;

namespace quorin::text {

// The ICU converter name used for each encoding. Where a legacy encoding has
// a common superset, the superset is used, as browsers and Windows do:
// Shift_JIS is Windows-31J (CP932), EUC-KR is Windows-949 (UHC), Big5 is
// Windows-950, and GB18030 covers GBK and GB2312.
const char* icuName(DetectedEncoding encoding);

// One open ICU converter. Move-only; closes on destruction. Opening cannot
// fail for the built-in names above (ICU's data is linked in), so a failure
// stops the program. Not thread-safe: a converter carries conversion state,
// so each stream uses its own.
class IcuConverter {
 public:
  explicit IcuConverter(DetectedEncoding encoding);
  explicit IcuConverter(const char* icuName);
  ~IcuConverter();
  IcuConverter(IcuConverter&& other) noexcept : converter_(other.converter_) { other.converter_ = nullptr; }
  IcuConverter& operator=(IcuConverter&& other) noexcept;
  IcuConverter(const IcuConverter&) = delete;
  IcuConverter& operator=(const IcuConverter&) = delete;

  UConverter* get() const { return converter_; }

 private:
  UConverter* converter_;
};

// Converts a byte stream in `source` encoding to UTF-8, piece by piece: a
// character split between two pieces converts as if the pieces were one, so
// a file may be fed in blocks of any size.
//
// Never fails. Every malformed sequence (and every byte sequence the encoding
// leaves unassigned) becomes one U+FFFD, counted in substitutions(), so the
// output is then not a faithful image of the input and writing it back would
// change the file. No byte-order mark is skipped or added: callers strip the
// mark before the first piece.
//
// Not movable (ICU holds a pointer to it for the substitution count); not
// thread-safe.
class Utf8DecodeStream {
 public:
  explicit Utf8DecodeStream(DetectedEncoding source);
  Utf8DecodeStream(const Utf8DecodeStream&) = delete;
  Utf8DecodeStream& operator=(const Utf8DecodeStream&) = delete;

  // Appends the UTF-8 form of `bytes` to `out`. Pass last = true with the
  // final piece (which may be empty) so that a sequence cut off at the end of
  // the input is replaced rather than held back.
  void convert(std::span<const uint8_t> bytes, bool last, std::string& out);

  int64_t substitutions() const { return substitutions_; }

 private:
  IcuConverter source_;
  IcuConverter utf8_;
  std::array<char16_t, 4096> pivot_{};
  char16_t* pivotSource_ = pivot_.data();
  char16_t* pivotTarget_ = pivot_.data();
  bool started_ = false;
  int64_t substitutions_ = 0;
};

}  // namespace quorin::text
