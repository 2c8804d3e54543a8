#pragma once

#include <string>
#include <vector>

#include "search/ByteSearch.h"
#include "search/Matcher.h"

namespace quorin::search {

// Plain byte search for one or more literals (a plain query, or a regex
// that is only an alternation of literals). Left to right, without overlap:
// at each step the literal occurring first wins, the one listed first on a
// tie, and the scan continues after it.
//
// caseInsensitive folds ASCII letters only (the caller routes non-ASCII
// case-insensitive queries elsewhere). wholeWord keeps a match only when
// the bytes around it are not word bytes.
class LiteralMatcher final : public Matcher {
 public:
  LiteralMatcher(std::vector<std::string> literals, bool caseInsensitive, bool wholeWord);

  std::unique_ptr<WindowScanner> makeScanner() const override;
  size_t contextBefore() const override { return 1; }
  size_t overlapAfter() const override { return maxLength_; }

  const std::vector<ByteFinder>& finders() const { return finders_; }
  bool caseInsensitive() const { return caseInsensitive_; }
  bool wholeWord() const { return wholeWord_; }

 private:
  std::vector<ByteFinder> finders_;
  bool caseInsensitive_;
  bool wholeWord_;
  size_t maxLength_ = 0;
};

}  // namespace quorin::search
