#include "base/Errno.h"

#include <cstring>

namespace quorin::base {

std::string errnoText(int err) {
  char buf[256];
  // GNU strerror_r may return a static string instead of filling buf.
  const char* text = ::strerror_r(err, buf, sizeof buf);
  return text;
}

}  // namespace quorin::base
