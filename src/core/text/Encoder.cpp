#include "text/Encoder.h"

#include <unicode/ucnv.h>
#include <unicode/ucnv_err.h>

#include <array>

#include "base/Check.h"
#include "text/Decode.h"
#include "text/Utf8.h"

namespace quorin::text {
namespace {

constexpr char32_t kReplacement = 0xFFFD;
// Decoded text is handed to ICU in batches of about this many UTF-16 units.
constexpr size_t kUnitBatch = 16 * 1024;

bool isUtf8(DetectedEncoding encoding) {
  return encoding == DetectedEncoding::utf8 || encoding == DetectedEncoding::utf8WithBOM;
}

// Leaves every error standing. ICU's own stop callback silently skips
// unmappable default-ignorable characters (U+FEFF, U+200B, …), which would
// drop them from the saved file without a word.
void stopOnEveryCharacter(const void*, UConverterFromUnicodeArgs*, const UChar*, int32_t, UChar32,
                          UConverterCallbackReason, UErrorCode*) {}

}  // namespace

Encoder::Encoder(DetectedEncoding target, bool writeByteOrderMark)
    : target_(target), converter_(target), markPending_(writeByteOrderMark) {
  UErrorCode err = U_ZERO_ERROR;
  ucnv_setFromUCallBack(converter_.get(), stopOnEveryCharacter, nullptr, nullptr, nullptr, &err);
  QUORIN_CHECK(U_SUCCESS(err), "setting an ICU callback failed");
  ucnv_setFallback(converter_.get(), false);
}

std::expected<void, Unrepresentable> Encoder::encode(std::span<const uint8_t> utf8, bool last,
                                                     std::string& out) {
  if (markPending_) {
    const auto mark = byteOrderMark(target_);
    out.append(reinterpret_cast<const char*>(mark.data()), mark.size());
    markPending_ = false;
  }
  // A sequence cut off by the previous piece is completed with this one's
  // first bytes: the pieces are joined when there is a carry (a copy of the
  // piece, cheap next to the conversion itself).
  std::vector<uint8_t> joined;
  std::span<const uint8_t> bytes = utf8;
  const int64_t baseOffset = consumed_ - static_cast<int64_t>(carry_.size());
  if (!carry_.empty()) {
    joined = std::move(carry_);
    joined.insert(joined.end(), utf8.begin(), utf8.end());
    bytes = joined;
    carry_.clear();
  }
  consumed_ += static_cast<int64_t>(utf8.size());
  if (isUtf8(target_)) {
    encodeAsUtf8(bytes, last, out);
    return {};
  }
  return encodeWithIcu(bytes, baseOffset, last, out);
}

void Encoder::encodeAsUtf8(std::span<const uint8_t> bytes, bool last, std::string& out) {
  size_t i = 0;
  while (i < bytes.size()) {
    const size_t valid = validUtf8Prefix(bytes.subspan(i));
    out.append(reinterpret_cast<const char*>(bytes.data() + i), valid);
    i += valid;
    if (i == bytes.size()) break;
    const Utf8Step step = readUtf8(bytes, i);
    if (step.kind == Utf8Step::Kind::truncated && !last) {
      carry_.assign(bytes.begin() + static_cast<ptrdiff_t>(i), bytes.end());
      return;
    }
    appendUtf8(out, kReplacement);
    i += step.length;
  }
}

std::expected<void, Unrepresentable> Encoder::encodeWithIcu(std::span<const uint8_t> bytes,
                                                            int64_t baseOffset, bool last, std::string& out) {
  size_t i = 0;
  while (i < bytes.size()) {
    const Utf8Step step = readUtf8(bytes, i);
    if (step.kind == Utf8Step::Kind::truncated && !last) {
      carry_.assign(bytes.begin() + static_cast<ptrdiff_t>(i), bytes.end());
      break;
    }
    const char32_t cp = step.kind == Utf8Step::Kind::valid ? step.codePoint : kReplacement;
    const int64_t offset = baseOffset + static_cast<int64_t>(i);
    // Both halves of a surrogate pair go into the same batch, so ICU never
    // has to hold half a character between batches.
    if (cp >= 0x10000) {
      units_.push_back(static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10)));
      units_.push_back(static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF)));
      unitOffsets_.insert(unitOffsets_.end(), 2, offset);
    } else {
      units_.push_back(static_cast<char16_t>(cp));
      unitOffsets_.push_back(offset);
    }
    i += step.length;
    if (units_.size() >= kUnitBatch) {
      if (auto flushed = flushUnits(false, out); !flushed) return flushed;
    }
  }
  return flushUnits(last, out);
}

std::expected<void, Unrepresentable> Encoder::flushUnits(bool last, std::string& out) {
  const UChar* const begin = reinterpret_cast<const UChar*>(units_.data());
  const UChar* source = begin;
  const UChar* const sourceLimit = begin + units_.size();
  std::array<char, 64 * 1024> buffer;
  for (;;) {
    char* target = buffer.data();
    UErrorCode err = U_ZERO_ERROR;
    ucnv_fromUnicode(converter_.get(), &target, buffer.data() + buffer.size(), &source, sourceLimit, nullptr,
                     last, &err);
    out.append(buffer.data(), static_cast<size_t>(target - buffer.data()));
    if (err == U_BUFFER_OVERFLOW_ERROR) continue;
    if (U_FAILURE(err)) {
      // The stop callback leaves the source just past the offending
      // character, which ICU keeps as its "invalid" units.
      std::array<UChar, 4> invalid;
      int8_t invalidLength = static_cast<int8_t>(invalid.size());
      UErrorCode ignored = U_ZERO_ERROR;
      ucnv_getInvalidUChars(converter_.get(), invalid.data(), &invalidLength, &ignored);
      ptrdiff_t index = (source - begin) - (U_SUCCESS(ignored) ? invalidLength : 1);
      if (index < 0) index = 0;
      const char16_t unit = units_[static_cast<size_t>(index)];
      char32_t cp = unit;
      if (unit >= 0xD800 && unit <= 0xDBFF && static_cast<size_t>(index) + 1 < units_.size()) {
        cp = 0x10000 + ((unit - 0xD800u) << 10) + (units_[static_cast<size_t>(index) + 1] - 0xDC00u);
      }
      return std::unexpected(Unrepresentable{unitOffsets_[static_cast<size_t>(index)], cp});
    }
    break;
  }
  units_.clear();
  unitOffsets_.clear();
  return {};
}

std::expected<std::string, Unrepresentable> encodeUtf8(std::string_view utf8, DetectedEncoding target,
                                                       bool writeByteOrderMark) {
  std::string out;
  Encoder encoder(target, writeByteOrderMark);
  auto result = encoder.encode({reinterpret_cast<const uint8_t*>(utf8.data()), utf8.size()}, true, out);
  if (!result) return std::unexpected(result.error());
  return out;
}

}  // namespace quorin::text
