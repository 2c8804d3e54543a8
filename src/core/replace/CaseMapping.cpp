#include "replace/CaseMapping.h"

#include <unicode/uchar.h>
#include <unicode/ustring.h>
#include <unicode/utf8.h>

#include <span>
#include <vector>

#include "text/Utf8.h"

namespace quorin::replace {
namespace {

std::span<const uint8_t> bytesOf(std::string_view text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

// Maps one run of valid UTF-8.
void mapValidRun(std::string_view run, CaseChange change, std::string& out) {
  bool ascii = true;
  for (char c : run) ascii = ascii && static_cast<unsigned char>(c) < 0x80;
  if (ascii) {  // the usual case needs no conversion to UTF-16
    for (char c : run) {
      const auto b = static_cast<unsigned char>(c);
      if (change == CaseChange::upper && b >= 'a' && b <= 'z') c = static_cast<char>(b - 32);
      if (change == CaseChange::lower && b >= 'A' && b <= 'Z') c = static_cast<char>(b + 32);
      out.push_back(c);
    }
    return;
  }
  UErrorCode status = U_ZERO_ERROR;
  int32_t units = 0;
  std::vector<UChar> wide(run.size() + 1);
  u_strFromUTF8(wide.data(), static_cast<int32_t>(wide.size()), &units, run.data(),
                static_cast<int32_t>(run.size()), &status);
  if (U_FAILURE(status)) {
    out.append(run);
    return;
  }
  // Full mappings may grow the text (ß → SS); ICU says how much room it needs.
  std::vector<UChar> mapped(static_cast<size_t>(units) * 3 + 4);
  auto map = [&](UChar* dest, int32_t capacity, UErrorCode* error) {
    return change == CaseChange::upper ? u_strToUpper(dest, capacity, wide.data(), units, "", error)
                                       : u_strToLower(dest, capacity, wide.data(), units, "", error);
  };
  int32_t length = map(mapped.data(), static_cast<int32_t>(mapped.size()), &status);
  if (status == U_BUFFER_OVERFLOW_ERROR) {
    status = U_ZERO_ERROR;
    mapped.resize(static_cast<size_t>(length));
    length = map(mapped.data(), length, &status);
  }
  if (U_FAILURE(status)) {
    out.append(run);
    return;
  }
  int32_t bytes = 0;
  status = U_ZERO_ERROR;
  u_strToUTF8(nullptr, 0, &bytes, mapped.data(), length, &status);
  const size_t at = out.size();
  out.resize(at + static_cast<size_t>(bytes));
  status = U_ZERO_ERROR;
  u_strToUTF8(out.data() + at, bytes, nullptr, mapped.data(), length, &status);
}

}  // namespace

void appendUtf8(char32_t scalar, std::string& out) {
  uint8_t buffer[4];
  int32_t length = 0;
  UBool error = false;
  U8_APPEND(buffer, length, 4, static_cast<UChar32>(scalar), error);
  if (!error) out.append(reinterpret_cast<const char*>(buffer), static_cast<size_t>(length));
}

void appendCaseMapped(std::string_view text, CaseChange change, std::string& out) {
  if (change == CaseChange::none) {
    out.append(text);
    return;
  }
  const auto bytes = bytesOf(text);
  size_t runStart = 0;
  size_t i = 0;
  while (i < bytes.size()) {
    const text::Utf8Step step = text::readUtf8(bytes, i);
    if (step.kind == text::Utf8Step::Kind::valid) {
      i += step.length;
      continue;
    }
    mapValidRun(text.substr(runStart, i - runStart), change, out);
    out.append(text.substr(i, step.length));
    i += step.length;
    runStart = i;
  }
  mapValidRun(text.substr(runStart), change, out);
}

size_t appendFirstCharacterMapped(std::string_view text, CaseChange change, std::string& out) {
  if (text.empty()) return 0;
  const text::Utf8Step step = text::readUtf8(bytesOf(text), 0);
  if (step.kind != text::Utf8Step::Kind::valid || change == CaseChange::none) {
    out.append(text.substr(0, step.length));
    return step.length;
  }
  const UChar32 c = static_cast<UChar32>(step.codePoint);
  appendUtf8(static_cast<char32_t>(change == CaseChange::upper ? u_totitle(c) : u_tolower(c)), out);
  return step.length;
}

}  // namespace quorin::replace
