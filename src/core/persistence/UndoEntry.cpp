#include "persistence/UndoEntry.h"

#include "base/Check.h"

namespace quorin::persistence {

int64_t entryWeight(const UndoEntry& entry) {
  int64_t weight = kUndoEntryOverheadBytes;
  const bool ok = !__builtin_add_overflow(weight, entry.removedLength(), &weight) &&
                  !__builtin_add_overflow(weight, entry.insertedLength(), &weight);
  QUORIN_CHECK(ok, "undo entry weight overflows");
  for (const UndoEntry& sub : entry.batchSubEdits) {
    QUORIN_CHECK(!__builtin_add_overflow(weight, entryWeight(sub), &weight), "undo entry weight overflows");
  }
  return weight;
}

}  // namespace quorin::persistence
