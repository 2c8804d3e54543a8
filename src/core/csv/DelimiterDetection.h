#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "csv/CSVDelimiter.h"
#include "storage/PieceTableSnapshot.h"

namespace quorin::csv {

// How well one candidate delimiter explains a sample.
struct SampleScore {
  int records = 0;          // complete records sampled (at most kSampleRecords)
  int modalFieldCount = 0;  // the most frequent field count
  double share = 0;         // the fraction of records with the modal count
  bool failed = true;       // fewer than 2 complete records
  bool operator==(const SampleScore&) const = default;
};

inline constexpr int64_t kDetectionSampleBytes = 102'400;
inline constexpr size_t kNulScanBytes = 8'192;
inline constexpr int kSampleRecords = 200;

// Splits the sample into records with the candidate delimiter (stopping at
// kSampleRecords) and tallies their field counts; a partial record at the end
// is not counted. Among equally frequent counts the larger is modal.
SampleScore scoreSample(std::span<const uint8_t> sample, uint8_t delimiter, uint8_t terminator);

// The built-in delimiter that best explains the sample, or nothing when the
// text is not a table: a NUL in the first 8 KiB (binary data), or no
// candidate with at least 10 records and a steady column count (Tab: 2 or
// more columns in 90 % of rows; the others: 3 or more in 95 %). The score is
// share × 100 + min(columns, 50); an equal score keeps the earlier candidate
// (Comma, Tab, Pipe, Semicolon).
std::optional<CSVDelimiter> detectDelimiter(std::span<const uint8_t> sample, uint8_t terminator);

// The same over the first kDetectionSampleBytes bytes of a document.
std::optional<CSVDelimiter> detectDelimiter(const storage::PieceTableSnapshot& text, uint8_t terminator);

}  // namespace quorin::csv
