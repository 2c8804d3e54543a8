#include "base/Check.h"

#include <cstdio>
#include <cstdlib>

namespace quorin::base {

void checkFailed(const char* condition, const char* message, const char* file, int line) {
  std::fprintf(stderr, "[Quorin] fatal: %s (%s) at %s:%d\n", message, condition, file, line);
  std::fflush(stderr);
  std::abort();
}

}  // namespace quorin::base
