#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "storage/PieceTable.h"

namespace quorin::replace {

// Why a replacement or a batch ran nothing; describe() is the text shown.
struct ReplaceError {
  enum class Kind : uint8_t {
    invalidRegex,     // `detail`: PCRE2's message
    badTemplate,      // `detail`: the template's message
    emptyFind,        // a pair with nothing to find
    lineBreakInFind,  // a batch find that would span lines
    timedOut,         // the search ran out of time
    tooManyMatches,   // more matches than the caller can store
  };
  Kind kind = Kind::invalidRegex;
  int pair = 0;  // 1-based pair of a batch; 0 for a single replacement
  std::string detail;

  std::string describe() const;
  bool operator==(const ReplaceError&) const = default;
};

// How far a plan has come: `done` of `total` (lines searched, then matches
// expanded, or bytes of a batch's windows).
struct ReplaceProgress {
  int64_t done = 0;
  int64_t total = 0;
  int64_t replacementsSoFar = 0;
};
using ReplaceProgressHandler = std::function<void(const ReplaceProgress&)>;

// What a replacement or a batch would change in one snapshot: the sites of
// one bulk edit (document order, no overlap), ready for Document::replaceAll.
struct ReplacePlan {
  std::vector<storage::PieceTable::BulkEditSite> sites;
  int64_t replacements = 0;      // matches replaced (sites before merging)
  std::vector<int64_t> perPair;  // a batch's replacements, one count per pair
  bool keepsLength = true;       // every replacement as long as its match
  bool merged = false;           // dense sites were merged into chunks
  int64_t snapshotVersion = 0;
  bool cancelled = false;             // then no sites
  std::optional<ReplaceError> error;  // then no sites
  double elapsedSeconds = 0;
};

}  // namespace quorin::replace
