#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

#include "filter/FilterProjection.h"
#include "logs/LogIndex.h"
#include "search/SearchRuntime.h"

namespace quorin::filter {

// One shown line as the stream hands it out.
struct ShownLine {
  int64_t line = 0;       // 0-based document line
  std::string_view text;  // without its line break; valid during the call only
  bool cut = false;       // longer than the cap: `text` is its start
  bool afterGap = false;  // hidden lines lie between it and the previous shown line
};

// Streams the lines `projection` shows, in document order, through `visit`,
// reading the text in windows into one reused buffer: never the whole
// result in memory, however many lines are shown. Lines longer than
// `maxLineBytes` are handed out cut (the caller decides whether to read
// more). `visit` returns false to stop; so does a cancellation, checked
// every window. Returns whether every shown line was visited.
bool forEachShownLine(const logs::LogSource& source, const FilterProjection& projection, int64_t maxLineBytes,
                      const std::function<bool(const ShownLine&)>& visit,
                      const search::SearchCancellation* cancellation = nullptr);

}  // namespace quorin::filter
