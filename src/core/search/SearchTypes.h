#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quorin::search {

// What the user asked the find bar for.
struct SearchOptions {
  std::string query;
  bool caseSensitive = true;
  bool wholeWord = false;  // ignored in regex mode
  bool regex = false;
  bool escapes = false;  // \n, \t, \xHH, \uHHHH…; only when regex is off
  bool operator==(const SearchOptions&) const = default;
};

// One match, in document byte offsets.
struct SearchMatch {
  int64_t line = 0;           // 0-based line holding the match start
  int64_t lineByteStart = 0;  // that line's first byte
  int64_t matchByteStart = 0;
  int64_t matchByteLength = 0;
  bool operator==(const SearchMatch&) const = default;
};

struct SearchResult {
  std::vector<SearchMatch> matches;  // by matchByteStart, at most the cap
  bool cancelled = false;
  int64_t snapshotVersion = 0;
  double elapsedSeconds = 0;
  bool timedOut = false;
  std::optional<std::string> compileError;  // the regex compiler's message; no matches then
  int64_t totalMatchCount = 0;              // including those past the cap
  bool truncated = false;                   // totalMatchCount > matches.size()
  bool stale = false;                       // the document moved on while searching
};

struct SearchProgress {
  int64_t linesScanned = 0;
  int64_t totalLines = 0;  // an estimate while the line index is still being built
  int64_t matchesSoFar = 0;
  bool operator==(const SearchProgress&) const = default;
};

// The find bar's cap on stored matches.
inline constexpr int64_t kFindBarMatchCap = 2'000'000;

// The bounded find-next scan looks this far past its start.
inline constexpr int64_t kFindNextScanBytes = 64LL << 20;

}  // namespace quorin::search
