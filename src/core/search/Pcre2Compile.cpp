#include "search/Pcre2Compile.h"

namespace quorin::search {

std::expected<pcre2_code*, std::string> compilePcre2(std::string_view pattern, bool caseSensitive) {
  uint32_t flags = PCRE2_UTF | PCRE2_UCP;
  if (!caseSensitive) flags |= PCRE2_CASELESS;
  int errorCode = 0;
  PCRE2_SIZE errorOffset = 0;
  pcre2_code* code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(), flags,
                                   &errorCode, &errorOffset, nullptr);
  if (code == nullptr) {
    PCRE2_UCHAR message[256];
    pcre2_get_error_message(errorCode, message, sizeof message);
    return std::unexpected(std::string(reinterpret_cast<const char*>(message)));
  }
  pcre2_jit_compile(code, PCRE2_JIT_COMPLETE);
  return code;
}

}  // namespace quorin::search
