#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>

#include "document/DocumentTypes.h"
#include "replace/BatchReplace.h"
#include "replace/CapturingRegex.h"
#include "replace/ReplaceTypes.h"
#include "replace/ReplacementTemplate.h"
#include "replace/SiteCollector.h"
#include "search/SearchEngine.h"

namespace quorin::replace {

// How a plan reads and hands over its sites. The defaults are the product's;
// tests shrink them to force many windows and merged chunks in small texts.
struct PlanLimits {
  int64_t windowBytes = 1 << 20;      // a batch reads whole lines this much at a time
  int64_t maxWindowBytes = 64 << 20;  // a longer line is run in pieces
  int64_t mergeAboveSites = kMergeAboveSites;
  int64_t mergedChunkBytes = kMergedChunkBytes;
};

// A query and its replacement, checked before anything runs: a regex query's
// replacement is a template parsed against the pattern's groups; a literal
// query's is constant text ($ and \U taken as typed; with escapes on, the
// find bar's escapes expanded).
struct PreparedReplacement {
  search::SearchOptions options;
  ReplacementTemplate replacement = ReplacementTemplate::literal("");
  std::optional<CapturingRegex> captures;  // regex queries
};
std::expected<PreparedReplacement, ReplaceError> prepareReplacement(const search::SearchOptions& options,
                                                                    std::string_view replacement);

// The replacement of one match: `line` is its line without the line break,
// the match [matchStart, matchStart + matchLength) of it. For Replace and the
// find bar's preview.
std::string replacementForMatch(const PreparedReplacement& prepared, std::string_view line, size_t matchStart,
                                size_t matchLength);

// Every match of the query in the snapshot, replaced: the search engine finds
// them (all stored), then each is expanded in document order. Blocks; run it
// off the main thread. A cancelled or refused plan has no sites.
ReplacePlan planReplaceAll(const PreparedReplacement& prepared, const document::DocumentSnapshot& snapshot,
                           const search::SearchEngine& engine, const search::SearchCancellation& cancellation,
                           const ReplaceProgressHandler& progress = {}, const PlanLimits& limits = {});

// The second half of planReplaceAll, for a caller that has the matches
// already (the find bar's count): expands them in document order. The line
// fields of the matches are not used.
ReplacePlan planFromMatches(const PreparedReplacement& prepared, const storage::PieceTableSnapshot& text,
                            const search::SearchResult& found, const search::SearchCancellation& cancellation,
                            const ReplaceProgressHandler& progress = {}, const PlanLimits& limits = {});

// The replacement of the match at `match` of the text (its line read around
// it): Replace, and the find bar's preview of the next replacement.
std::string replacementAt(const PreparedReplacement& prepared, const storage::PieceTableSnapshot& text,
                          storage::ByteRange match);

// A batch over the snapshot, window by window of whole lines; the counts per
// pair in `perPair`. Same contract as planReplaceAll.
ReplacePlan planBatch(const Batch& batch, const document::DocumentSnapshot& snapshot,
                      const search::SearchCancellation& cancellation,
                      const ReplaceProgressHandler& progress = {}, const PlanLimits& limits = {});

}  // namespace quorin::replace
