#include "base/Log.h"

#include <unistd.h>

#include <string>

#include "base/Transfer.h"

namespace quorin::base {

void logLine(std::string_view message) {
  std::string line;
  line.reserve(message.size() + 10);
  line.append("[Quorin] ").append(message).push_back('\n');
  (void)writeAll(STDERR_FILENO, line);  // a failure leaves nowhere to report it to
}

}  // namespace quorin::base
