#pragma once

#include <cstdint>

namespace quorin::persistence {

// How much memory the undo history may use: a share of what the host could
// free right now (the history itself included, since it can be freed),
// between a floor and a ceiling.
struct UndoCapPolicy {
  double percentOfReclaimable = 0.25;
  int64_t floorBytes = 104'857'600;      // 100 MiB
  int64_t ceilingBytes = 4'294'967'296;  // 4 GiB

  // clamp((max(historyWeight, 0) + reclaimable) × percent, floor, ceiling), truncated.
  int64_t capFor(int64_t historyWeight, int64_t reclaimableBytes) const;
};

}  // namespace quorin::persistence
