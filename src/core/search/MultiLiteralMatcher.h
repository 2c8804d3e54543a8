#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "search/Matcher.h"

namespace quorin::search {

// Many literals (tens to tens of thousands) found in one pass: a filter's
// include list, a batch of find/replace pairs. Same contract as
// LiteralMatcher — left to right without overlap, the leftmost occurrence
// wins, the literal listed first on a tie at one position, ASCII case
// folding only, wholeWord keeps matches bounded by non-word bytes — but the
// cost per byte hardly depends on how many literals there are.
//
// Algorithm (Wu–Manber): with m the shortest literal's length, a window of
// m bytes slides over the text; the hash of its last B bytes (B = min(m, 3))
// gives how far it may move without passing a possible start (a shift table
// of 2^k bytes), and, where that is 0, the literals whose m-byte prefix ends
// with such a block, checked in listing order. Long literals make long
// shifts; a single-byte literal makes the scan go byte by byte.
//
// Empty literals are dropped. Immutable after construction; scanners are
// per thread.
class MultiLiteralMatcher final : public Matcher {
 public:
  MultiLiteralMatcher(std::vector<std::string> literals, bool caseInsensitive, bool wholeWord);

  std::unique_ptr<WindowScanner> makeScanner() const override;
  size_t contextBefore() const override { return 1; }
  size_t overlapAfter() const override { return maxLength_; }

  size_t literalCount() const { return literals_.size(); }

  // The scanner's view. shiftFor(h) is how far the window may move when its
  // last block hashes to h; candidates(h) the literal indices to check when
  // that is 0.
  struct Tables;
  const Tables& tables() const { return *tables_; }
  bool caseInsensitive() const { return caseInsensitive_; }
  bool wholeWord() const { return wholeWord_; }
  const std::vector<std::string>& literals() const { return literals_; }

 private:
  std::vector<std::string> literals_;
  bool caseInsensitive_;
  bool wholeWord_;
  size_t maxLength_ = 0;
  std::shared_ptr<const Tables> tables_;
};

}  // namespace quorin::search
