#include "persistence/UndoCapPolicy.h"

#include <algorithm>

namespace quorin::persistence {

int64_t UndoCapPolicy::capFor(int64_t historyWeight, int64_t reclaimableBytes) const {
  const double raw = (static_cast<double>(std::max<int64_t>(historyWeight, 0)) +
                      static_cast<double>(std::max<int64_t>(reclaimableBytes, 0))) *
                     percentOfReclaimable;
  const double clamped = std::clamp(raw, static_cast<double>(floorBytes), static_cast<double>(ceilingBytes));
  return static_cast<int64_t>(clamped);
}

}  // namespace quorin::persistence
