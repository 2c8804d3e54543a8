#pragma once

#include <string>

namespace quorin::replace {

// One find/replace pair of a batch.
struct BatchPair {
  std::string find;
  std::string replace;  // a template for a regex pair, literal text otherwise
  bool regex = false;
  bool caseSensitive = true;
  bool wholeWord = false;  // literal pairs only, as in the find bar
  bool escapes = false;    // literal pairs: \n \t \xHH … in both texts
  bool operator==(const BatchPair&) const = default;
};

// How a batch runs: every pair in one pass (a swap swaps), or each pair a
// pass over the result of the one before.
enum class BatchMode { simultaneous, sequential };

}  // namespace quorin::replace
