#include "filter/FilterProjection.h"

namespace quorin::filter {

bool insertedLinesVisible(const LineVisibilityBitset& bitset, int64_t from, int64_t removed) {
  // The edited line itself (the first removed one) tells most: an edit
  // inside a shown line keeps it shown. Failing that, a shown neighbour.
  if (removed > 0 && bitset.isVisible(from)) return true;
  return bitset.isVisible(from - 1) || bitset.isVisible(from + removed);
}

}  // namespace quorin::filter
