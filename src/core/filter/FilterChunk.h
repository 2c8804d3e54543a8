#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "filter/CompiledFilter.h"
#include "filter/FilterEvaluator.h"
#include "filter/LineBits.h"

namespace quorin::filter {

// Everything the chunks of one evaluation share. Read-only while they run.
struct FilterJob {
  const CompiledFilter& filter;
  const logs::LogSource& source;
  const FilterContext& context;
  const FilterLimits& limits;
  uint8_t terminator = '\n';
  std::optional<logs::TimestampFormat> format;
  int32_t yearForYearless = 1970;
  std::vector<WindowMicros> windows;
  // When set, a head line's level is read from the log index's lists of
  // warning-and-above messages instead of detected (the index describes this
  // very text, and every level the filter compares is warning or above, so
  // "below warning" is all it needs to know of the rest).
  const logs::LogIndexData* indexLevels = nullptr;
  // True when the evaluation must stop (cancelled or out of time); checked once per window.
  std::function<bool()> shouldStop;
  // Lines finished, reported once per window; thread-safe.
  std::function<void(int64_t)> addLines;
};

// Lines [firstLine, endLine) of one chunk, firstLine a multiple of 64.
struct ChunkOutput {
  LineWords selected;  // lines passing the rules (before messages and context widen them)
  LineWords heads;     // message head lines (only when the filter needs messages)
  bool finished = false;
};

ChunkOutput evaluateChunk(const FilterJob& job, int64_t firstLine, int64_t endLine);

}  // namespace quorin::filter
