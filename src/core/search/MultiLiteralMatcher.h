#pragma once

#include <cstdint>
#include <memory>
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
// Two stages. Candidate starts come from a prefilter: the Teddy buckets of
// MultiLiteralTeddy.h over the literals' first 1–3 bytes (16 to 64
// positions per vector step; a literal shorter than that lets any byte
// through past its end), or, when the literals' prefixes are so varied
// that most positions would pass those buckets and every literal is at
// least 4 bytes long, Wu–Manber's shift table (a window of the shortest
// literal's length m slides by how far the hash of its last bytes allows).
// Each candidate is then checked exactly: the literals are keyed by their
// first min(length, 8) bytes in one hash table, so a check is one probe per
// distinct key length the candidate's buckets hold, then a comparison of
// the bytes past the eighth.
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

  // The scanner's view.
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
