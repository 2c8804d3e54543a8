#include "storage/MMapError.h"

#include "base/Errno.h"

namespace quorin::storage {

std::string MMapError::describe() const {
  switch (kind) {
    case Kind::openFailed: return "open(" + path + ") failed: " + base::errnoText(err);
    case Kind::statFailed: return "fstat failed: " + base::errnoText(err);
    case Kind::mmapFailed: return "mmap failed: " + base::errnoText(err);
    case Kind::empty: return "file is empty";
    case Kind::notRegularFile: return path + " is not a regular file";
  }
  return {};
}

}  // namespace quorin::storage
