#pragma once

#include <functional>

#include "logs/LogIndexScan.h"

namespace quorin::logs::detail {

// A whole build over a source, in rounds of chunks run in parallel on
// `pool`: after each round the chunks are joined in order and `afterRound`
// (optional) sees the join so far. Returns the join; it covers fewer lines
// than the source when the token cancelled the build.
struct BuildOutcome {
  ScanJoin join;
  bool complete = false;
};
BuildOutcome buildInRounds(const LogSource& source, const SeverityRules& rules,
                           std::optional<TimestampFormat> format, const LogIndexOptions& options,
                           dispatch::WorkerPool& pool, jobs::JobToken* token,
                           const std::function<void(const ScanJoin&)>& afterRound);

}  // namespace quorin::logs::detail
