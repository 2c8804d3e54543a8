#pragma once

#ifndef PCRE2_CODE_UNIT_WIDTH
#define PCRE2_CODE_UNIT_WIDTH 8
#endif
#include <pcre2.h>

#include <expected>
#include <string>
#include <string_view>

namespace quorin::search {

// Compiles `pattern` as the editor's searches do: UTF-8 with Unicode
// classes, caseless when asked, JIT-compiled where the processor allows
// (the interpreter serves otherwise). PCRE2's own message when it does not
// compile. The caller owns the code (pcre2_code_free).
std::expected<pcre2_code*, std::string> compilePcre2(std::string_view pattern, bool caseSensitive);

}  // namespace quorin::search
