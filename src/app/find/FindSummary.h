#pragma once

#include <QString>
#include <cstdint>

#include "search/SearchTypes.h"

namespace quorin::app {

// The texts the find bar shows about a whole-document count. Numbers are
// grouped by threes with commas ("2,000,000") whatever the locale, so the
// texts read the same in every log excerpt and bug report.
QString groupedNumber(int64_t value);

// While counting: "Searching… 42% · 1,234 matches so far".
QString countingSummary(const search::SearchProgress& progress);

// After the count: "Invalid regex: …", "12 matches (timed out)", "Timed out",
// the cap text, "No matches", "1 match", "1,234 matches", or "3 of 1,234"
// when `current` (0-based) names the selected match.
// `stored` is how many matches were kept (the result's own list may have
// been moved elsewhere).
QString resultSummary(const search::SearchResult& result, int64_t stored, int64_t cap,
                      std::optional<int64_t> current = {});

// The bar's other texts.
QString staleSuffix();   // " (stale)"
QString staleToolTip();  // why a summary is marked stale
QString wrapNote(bool backward);
QString allMatchesHiddenNote();       // every match is on a line the filter hides
QString replacedNote(int64_t count);  // "Replaced 1 match", "Replaced 1,234 matches"
QString nothingReplacedSuffix();      // " — nothing was replaced"
QString replaceAllCancelledNote();
QString textChangedDuringCountNote();
QString replacePreviewNote(const QString& replacement);  // "Next replacement: “…”"
QString replacePreviewUnknownNote();

}  // namespace quorin::app
