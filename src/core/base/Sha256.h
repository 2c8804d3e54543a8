#pragma once

#include <string>
#include <string_view>

namespace quorin::base {

// The SHA-256 of `bytes` as 64 lowercase hex digits (OpenSSL's libcrypto).
std::string sha256Hex(std::string_view bytes);

}  // namespace quorin::base
