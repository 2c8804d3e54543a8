#pragma once

#include <string>

namespace quorin::base {

// The C library's text for an errno value (strerror), safe to call from any thread.
std::string errnoText(int err);

}  // namespace quorin::base
