#pragma once

#include <functional>

namespace quorin::dispatch {

// A unit of work handed to a queue. It is a std::function, so whatever it captures must be copyable.
using Task = std::function<void()>;

}  // namespace quorin::dispatch
