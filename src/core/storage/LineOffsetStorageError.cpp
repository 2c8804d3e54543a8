#include "storage/LineOffsetStorageError.h"

#include "base/Errno.h"

namespace quorin::storage {

std::string LineOffsetStorageError::describe() const {
  switch (kind) {
    case Kind::open: return "open(" + path + ") failed: " + base::errnoText(err);
    case Kind::ftruncate: return "ftruncate failed: " + base::errnoText(err);
    case Kind::mmap: return "mmap (line index) failed: " + base::errnoText(err);
    case Kind::preallocate: return "preallocate failed: " + base::errnoText(err);
  }
  return {};
}

}  // namespace quorin::storage
