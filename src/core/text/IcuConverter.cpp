#include "text/IcuConverter.h"

#include <unicode/ucnv.h>
#include <unicode/ucnv_cb.h>

#include <array>
#include <string>

#include "base/Check.h"

namespace quorin::text {
namespace {

constexpr std::array<const char*, kDetectedEncodingCount> kIcuNames = {
    "UTF-8",  "UTF-8",   "UTF-16LE", "UTF-16BE",         "UTF-32LE",     "UTF-32BE",   "windows-31j",
    "EUC-JP", "GB18030", "Big5",     "windows-949-2000", "windows-1252", "ISO-8859-1",
};

// Replaces every malformed or unassigned input sequence with one U+FFFD and
// counts it. ICU's own substitution callback counts nothing and writes U+001A
// rather than U+FFFD for some code pages.
void substituteAndCount(const void* context, UConverterToUnicodeArgs* args, const char*, int32_t,
                        UConverterCallbackReason reason, UErrorCode* err) {
  if (reason > UCNV_IRREGULAR) return;  // reset, close and clone need nothing
  ++*static_cast<int64_t*>(const_cast<void*>(context));
  *err = U_ZERO_ERROR;
  const UChar replacement = 0xFFFD;
  ucnv_cbToUWriteUChars(args, &replacement, 1, 0, err);
}

}  // namespace

const char* icuName(DetectedEncoding encoding) { return kIcuNames[static_cast<size_t>(encoding)]; }

IcuConverter::IcuConverter(DetectedEncoding encoding) : IcuConverter(icuName(encoding)) {}

IcuConverter::IcuConverter(const char* icuName) {
  UErrorCode err = U_ZERO_ERROR;
  converter_ = ucnv_open(icuName, &err);
  QUORIN_CHECK(U_SUCCESS(err) && converter_ != nullptr,
               "ICU converter for a built-in encoding failed to open");
}

IcuConverter::~IcuConverter() {
  if (converter_ != nullptr) ucnv_close(converter_);
}

IcuConverter& IcuConverter::operator=(IcuConverter&& other) noexcept {
  if (this != &other) {
    if (converter_ != nullptr) ucnv_close(converter_);
    converter_ = other.converter_;
    other.converter_ = nullptr;
  }
  return *this;
}

Utf8DecodeStream::Utf8DecodeStream(DetectedEncoding source) : source_(source), utf8_("UTF-8") {
  UErrorCode err = U_ZERO_ERROR;
  ucnv_setToUCallBack(source_.get(), substituteAndCount, &substitutions_, nullptr, nullptr, &err);
  QUORIN_CHECK(U_SUCCESS(err), "setting an ICU callback failed");
}

void Utf8DecodeStream::convert(std::span<const uint8_t> bytes, bool last, std::string& out) {
  const char* source = reinterpret_cast<const char*>(bytes.data());
  const char* const sourceLimit = source + bytes.size();
  // Every input byte yields at most three UTF-8 bytes (a lone byte becomes
  // U+FFFD; two UTF-16 bytes can become a three-byte character), plus what a
  // previous piece left in the pivot; the loop below copes with more anyway.
  size_t room = bytes.size() * 3 + 64;
  for (;;) {
    const size_t start = out.size();
    out.resize(start + room);
    char* target = out.data() + start;
    UErrorCode err = U_ZERO_ERROR;
    ucnv_convertEx(utf8_.get(), source_.get(), &target, out.data() + out.size(), &source, sourceLimit,
                   reinterpret_cast<UChar*>(pivot_.data()), reinterpret_cast<UChar**>(&pivotSource_),
                   reinterpret_cast<UChar**>(&pivotTarget_),
                   reinterpret_cast<const UChar*>(pivot_.data() + pivot_.size()), !started_, last, &err);
    started_ = true;
    out.resize(static_cast<size_t>(target - out.data()));
    if (err == U_BUFFER_OVERFLOW_ERROR) {
      room = room * 2;
      continue;
    }
    // The callback turns every conversion error into a substitution, and
    // UTF-8 can represent every character, so nothing else can go wrong.
    QUORIN_CHECK(U_SUCCESS(err), "ICU conversion to UTF-8 failed");
    return;
  }
}

}  // namespace quorin::text
