#include "csv/DelimiterDetection.h"

#include <algorithm>
#include <map>
#include <vector>

#include "csv/RecordScanner.h"

namespace quorin::csv {
namespace {

bool qualifies(const CSVDelimiter& candidate, const SampleScore& score) {
  if (score.failed || score.records < 10) return false;
  if (candidate.byte == '\t') return score.modalFieldCount >= 2 && score.share >= 0.9;
  return score.modalFieldCount >= 3 && score.share >= 0.95;
}

}  // namespace

SampleScore scoreSample(std::span<const uint8_t> sample, uint8_t delimiter, uint8_t terminator) {
  RecordScanner scanner(delimiter, terminator);
  std::vector<ScannedRecord> records;
  records.reserve(kSampleRecords);
  scanner.scanBytewise(sample, records, kSampleRecords);
  SampleScore score;
  score.records = static_cast<int>(records.size());
  if (records.size() < 2) return score;

  std::map<int64_t, int> tally;
  for (const ScannedRecord& record : records) ++tally[record.fieldCount];
  // Ascending keys, and >= keeps the later of equal frequencies: the larger count.
  auto modal = tally.begin();
  for (auto it = tally.begin(); it != tally.end(); ++it)
    if (it->second >= modal->second) modal = it;
  score.modalFieldCount = static_cast<int>(std::min<int64_t>(modal->first, INT32_MAX));
  score.share = static_cast<double>(modal->second) / static_cast<double>(records.size());
  score.failed = false;
  return score;
}

std::optional<CSVDelimiter> detectDelimiter(std::span<const uint8_t> sample, uint8_t terminator) {
  // A NUL early on means binary data, whatever its bytes happen to look like.
  const auto head = sample.first(std::min(sample.size(), kNulScanBytes));
  if (std::ranges::find(head, uint8_t{0}) != head.end()) return std::nullopt;
  std::optional<CSVDelimiter> best;
  double bestScore = 0;
  for (CSVDelimiter& candidate : CSVDelimiter::builtIns()) {
    const SampleScore score = scoreSample(sample, candidate.byte, terminator);
    if (!qualifies(candidate, score)) continue;
    const double value = score.share * 100 + std::min(score.modalFieldCount, 50);
    if (!best || value > bestScore) {
      best = std::move(candidate);
      bestScore = value;
    }
  }
  return best;
}

std::optional<CSVDelimiter> detectDelimiter(const storage::PieceTableSnapshot& text, uint8_t terminator) {
  const int64_t length = std::min(text.totalLength(), kDetectionSampleBytes);
  std::vector<uint8_t> sample(static_cast<size_t>(length));
  sample.resize(static_cast<size_t>(text.copyBytes({0, length}, sample.data())));
  return detectDelimiter(sample, terminator);
}

}  // namespace quorin::csv
