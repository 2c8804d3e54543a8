#include "base/Sha256.h"

#include <openssl/evp.h>

#include "base/Check.h"

namespace quorin::base {

std::string sha256Hex(std::string_view bytes) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  QUORIN_CHECK(EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_sha256(), nullptr) == 1,
               "SHA-256 failed");
  static constexpr char kHex[] = "0123456789abcdef";
  std::string hex;
  hex.reserve(2 * length);
  for (unsigned int i = 0; i < length; ++i) {
    hex += kHex[digest[i] >> 4];
    hex += kHex[digest[i] & 15];
  }
  return hex;
}

}  // namespace quorin::base
