#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace quorin::storage {

// The range of the document a line index covers: the whole document, or a
// bounded window [start, end) for the slice and tail open modes.
struct LineIndexWindow {
  int64_t start = 0;
  std::optional<int64_t> end;  // present for a bounded window

  static LineIndexWindow wholeDocument() { return {}; }
  static LineIndexWindow bounded(int64_t start, int64_t end) { return {start, end}; }
  bool isBounded() const { return end.has_value(); }
  bool operator==(const LineIndexWindow&) const = default;
};

// How the build is paced. The defaults are the product's; tests shrink them
// to force many passes, chunk boundaries and delta merges in small texts.
struct LineIndexLimits {
  int64_t firstPassLines = 10'000;  // found before the open returns: a first screen and more
  int64_t firstPassBytes = 8 << 20;
  int64_t passLines = 100'000;  // background passes: progress several times a second
  int64_t passBytes = 32 << 20;
  int64_t chunkBytes = 1 << 20;
  int chunksPerCheck = 16;  // cancellation and edits noticed within 16 MiB
  // An edit is spliced into the stored starts when at most this many entries
  // follow it (about a millisecond of shifting); past that, it is kept as a
  // delta so that typing at the top of a huge file stays instant.
  int64_t spliceShiftLimit = 1 << 20;
  // Deltas are folded into a fresh base (a restart) once they weigh this much:
  // lookups walk them, so their number must stay bounded.
  int64_t deltaRestartWeight = 1 << 20;
};

// Moves a running in-memory index to a scratch file once it holds
// `lineThreshold` lines: a file whose lines are much shorter than the tier
// estimate assumed would otherwise keep hundreds of megabytes in memory.
struct LiveTierPromotion {
  int64_t lineThreshold = 20'000'000;  // the line count from which files start on disk
  std::filesystem::path scratchFile;
};

// What the index reports to the main queue after its first pass and every
// background pass.
struct LineIndexProgress {
  int64_t epoch = 0;
  int64_t bytesScanned = 0;  // of the indexed range
  int64_t bytesTotal = 0;
  bool isComplete = false;
  int64_t lineCount = 0;  // exact once complete, estimated before
  int64_t chunksProcessed = 0;
  double buildDurationSeconds = 0;
  std::string tierName;
  std::optional<std::string> status;  // a one-off notice, such as a promotion

  double fraction() const {
    return isComplete || bytesTotal <= 0
               ? 1.0
               : static_cast<double>(bytesScanned) / static_cast<double>(bytesTotal);
  }
};

}  // namespace quorin::storage
