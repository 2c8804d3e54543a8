#pragma once

#include <cstdint>
#include <optional>

#include "logs/LogIndex.h"
#include "logs/LogIndexData.h"
#include "logs/SeverityRules.h"

namespace quorin::app {

// The head line of the next (or previous) message after (before) `line` at
// `atLeast` or above, among the lines the index has read; none when there is
// none. Warning and above come from the index's lists; lower levels from a
// scan of the blocks whose counts say they hold such a message (at most
// about two blocks are read). A document without timestamps has one
// message per line.
std::optional<int64_t> stepToLevel(const logs::LogIndexData& data, const logs::LogSource& source,
                                   const logs::SeverityRules& rules, int64_t line, logs::Level atLeast,
                                   bool forward);

}  // namespace quorin::app
