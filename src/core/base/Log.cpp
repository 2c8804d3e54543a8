#include "base/Log.h"

#include <unistd.h>

#include <string>

namespace quorin::base {

void logLine(std::string_view message) {
  std::string line;
  line.reserve(message.size() + 10);
  line.append("[Quorin] ").append(message).push_back('\n');
  size_t done = 0;
  while (done < line.size()) {
    ssize_t n = ::write(STDERR_FILENO, line.data() + done, line.size() - done);
    if (n <= 0) break;  // nowhere left to report to
    done += static_cast<size_t>(n);
  }
}

}  // namespace quorin::base
