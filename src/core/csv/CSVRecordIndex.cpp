#include "csv/CSVRecordIndex.h"

#include <algorithm>
#include <map>
#include <new>

#include "base/PageAligned.h"

namespace quorin::csv {
namespace {

uint16_t saturated(int64_t fieldCount) {
  return static_cast<uint16_t>(std::clamp<int64_t>(fieldCount, 0, kMaxFieldCount));
}

int64_t clampedAdd(int64_t value, int64_t delta) { return std::max<int64_t>(value + delta, 0); }

}  // namespace

CSVRecordIndex::CSVRecordIndex(CSVDelimiter delimiter, int64_t totalBytes)
    : delimiter_(std::move(delimiter)), totalBytes_(std::max<int64_t>(totalBytes, 0)) {}

// ---- Building ----

void CSVRecordIndex::build(const storage::PieceTableSnapshot& text, uint8_t terminator, jobs::JobToken* token,
                           int64_t chunkBytes) {
  chunkBytes = std::max<int64_t>(chunkBytes, 1);
  const int64_t length = text.totalLength();
  base::ReadBuffer buffer(static_cast<size_t>(std::clamp<int64_t>(length, 1, chunkBytes)));
  RecordScanner scanner(delimiter_.byte, terminator);
  std::vector<ScannedRecord> rows;
  int64_t at = 0;
  while (at < length) {
    {
      base::MutexLock lock(mutex_);
      if (token != nullptr && token->isCancelled()) return;
    }
    const int64_t wanted = std::min(chunkBytes, length - at);
    const int64_t got = text.copyBytes({at, at + wanted}, buffer.data());
    rows.clear();
    scanner.scan({buffer.data(), static_cast<size_t>(got)}, rows);
    at += got;
    commitChunk(rows, at);
    if (token != nullptr) token->setProgress(static_cast<double>(at) / static_cast<double>(length));
    // Fewer bytes than asked for: the file was cut short under the snapshot.
    // What was read is indexed; the rest does not exist any more.
    if (got < wanted) break;
  }
  complete(scanner.trailingRecord(), scanner.insideQuotes(), at);
}

std::shared_ptr<jobs::JobToken> CSVRecordIndex::startBuild(std::shared_ptr<CSVRecordIndex> index,
                                                           storage::PieceTableSnapshot text,
                                                           uint8_t terminator, jobs::JobRegistry& registry,
                                                           dispatch::Executor& executor, std::string title,
                                                           std::function<void()> onFinished) {
  auto token = registry.begin(std::move(title));
  executor.async([index = std::move(index), text = std::move(text), terminator, token, onFinished] {
    index->build(text, terminator, token.get());
    token->finish();
    if (onFinished) onFinished();
  });
  return token;
}

void CSVRecordIndex::appendRowLocked(const ScannedRecord& row) {
  rowStarts_.push_back(row.start);
  fieldCounts_.push_back(saturated(row.fieldCount));
  growAnomalyBitsLocked();
  if (row.malformed) setAnomalyLocked(static_cast<int64_t>(rowStarts_.size()) - 1, true);
}

void CSVRecordIndex::commitChunk(std::span<const ScannedRecord> rows, int64_t scannedTo) {
  base::MutexLock lock(mutex_);
  const size_t old = rowStarts_.size();
  const auto firstNew = static_cast<int64_t>(old);
  // Sized once per chunk rather than grown per row: a chunk holds tens of
  // thousands of rows and this runs under the lock that readers wait on.
  rowStarts_.resize(old + rows.size());
  fieldCounts_.resize(old + rows.size());
  growAnomalyBitsLocked();
  for (size_t i = 0; i < rows.size(); ++i) {
    rowStarts_[old + i] = rows[i].start;
    fieldCounts_[old + i] = saturated(rows[i].fieldCount);
    if (rows[i].malformed) setAnomalyLocked(static_cast<int64_t>(old + i), true);
  }
  bytesScanned_ = scannedTo;
  const auto count = static_cast<int64_t>(rowStarts_.size());
  if (expectedLocked_) {
    for (int64_t row = firstNew; row < count; ++row) countRowLocked(row);
  } else if (count >= kExpectedColumnsSample) {
    settleExpectedColumnsLocked();
    recomputeStatisticsLocked();
  }
}

void CSVRecordIndex::complete(std::optional<ScannedRecord> trailing, bool unterminatedQuote,
                              int64_t scannedTo) {
  base::MutexLock lock(mutex_);
  if (trailing) {
    if (unterminatedQuote) trailing->malformed = true;
    appendRowLocked(*trailing);
    if (expectedLocked_) countRowLocked(static_cast<int64_t>(rowStarts_.size()) - 1);
  }
  unterminatedQuote_ = unterminatedQuote;
  bytesScanned_ = scannedTo;
  if (!expectedLocked_) {
    settleExpectedColumnsLocked();
    recomputeStatisticsLocked();
  }
  isComplete_ = true;
}

void CSVRecordIndex::settleExpectedColumnsLocked() {
  const size_t sample = std::min<size_t>(fieldCounts_.size(), kExpectedColumnsSample);
  std::map<uint16_t, int64_t> tally;
  for (size_t i = 0; i < sample; ++i) ++tally[fieldCounts_[i]];
  int64_t best = 0;
  // Ascending counts and >=: on equal frequency the wider shape wins, so a
  // table whose header and data disagree in equal numbers keeps its columns.
  for (const auto& [columns, frequency] : tally) {
    if (frequency >= best) {
      best = frequency;
      expectedColumns_ = columns;
    }
  }
  expectedLocked_ = true;
}

// ---- Statistics ----

void CSVRecordIndex::countRowLocked(int64_t row) {
  const bool malformed = fieldCounts_[static_cast<size_t>(row)] != expectedColumns_ || anomalousLocked(row);
  if (!malformed) {
    currentRun_ = 0;
    return;
  }
  ++malformedCount_;
  ++currentRun_;
  maxContiguousRun_ = std::max(maxContiguousRun_, currentRun_);
  if (malformedRows_.size() < kMalformedRowsCap) malformedRows_.push_back(row);
}

void CSVRecordIndex::recomputeStatisticsLocked() {
  malformedCount_ = 0;
  maxContiguousRun_ = 0;
  currentRun_ = 0;
  anomalyRowCount_ = 0;
  malformedRows_.clear();
  const auto count = static_cast<int64_t>(rowStarts_.size());
  for (int64_t row = 0; row < count; ++row) {
    if (anomalousLocked(row)) ++anomalyRowCount_;
    // Before expectedColumns is settled there is nothing to measure rows against.
    if (expectedLocked_) countRowLocked(row);
  }
}

// ---- Anomaly bits ----

bool CSVRecordIndex::anomalousLocked(int64_t row) const {
  if (row < 0 || row >= static_cast<int64_t>(rowStarts_.size())) return true;
  return (anomalyBits_[static_cast<size_t>(row / 64)] >> (row % 64)) & 1;
}

void CSVRecordIndex::setAnomalyLocked(int64_t row, bool on) {
  uint64_t& word = anomalyBits_[static_cast<size_t>(row / 64)];
  const uint64_t bit = uint64_t{1} << (row % 64);
  if (((word & bit) != 0) == on) return;
  word ^= bit;
  anomalyRowCount_ += on ? 1 : -1;
}

void CSVRecordIndex::growAnomalyBitsLocked() {
  const size_t words = (rowStarts_.size() + 63) / 64;
  if (anomalyBits_.size() < words) anomalyBits_.resize(words, 0);
}

// ---- Queries ----

int64_t CSVRecordIndex::rowEndLocked(int64_t row) const {
  const auto next = static_cast<size_t>(row) + 1;
  return next < rowStarts_.size() ? rowStarts_[next] : bytesScanned_;
}

int64_t CSVRecordIndex::rowCount() const {
  base::MutexLock lock(mutex_);
  return static_cast<int64_t>(rowStarts_.size());
}

std::optional<int64_t> CSVRecordIndex::rowStart(int64_t row) const {
  base::MutexLock lock(mutex_);
  if (row < 0 || row >= static_cast<int64_t>(rowStarts_.size())) return std::nullopt;
  return rowStarts_[static_cast<size_t>(row)];
}

std::optional<uint16_t> CSVRecordIndex::fieldCount(int64_t row) const {
  base::MutexLock lock(mutex_);
  if (row < 0 || row >= static_cast<int64_t>(fieldCounts_.size())) return std::nullopt;
  return fieldCounts_[static_cast<size_t>(row)];
}

std::optional<storage::ByteRange> CSVRecordIndex::rowSpan(int64_t row) const {
  base::MutexLock lock(mutex_);
  const auto count = static_cast<int64_t>(rowStarts_.size());
  if (row < 0 || row >= count) return std::nullopt;
  // The last row may still grow until the scan has seen the end.
  if (row == count - 1 && !isComplete_) return std::nullopt;
  const storage::ByteRange span{rowStarts_[static_cast<size_t>(row)], rowEndLocked(row)};
  if (span.start >= span.end) return std::nullopt;
  return span;
}

std::optional<int64_t> CSVRecordIndex::rowAtOffset(int64_t offset) const {
  base::MutexLock lock(mutex_);
  if (rowStarts_.empty() || offset >= bytesScanned_ || offset < rowStarts_.front()) return std::nullopt;
  const auto after = std::upper_bound(rowStarts_.begin(), rowStarts_.end(), offset);
  return static_cast<int64_t>(after - rowStarts_.begin()) - 1;
}

bool CSVRecordIndex::isAnomalous(int64_t row) const {
  base::MutexLock lock(mutex_);
  return anomalousLocked(row);
}

int64_t CSVRecordIndex::anomalyRowCount() const {
  base::MutexLock lock(mutex_);
  return anomalyRowCount_;
}

CSVStructureStats CSVRecordIndex::statistics() const {
  base::MutexLock lock(mutex_);
  return {expectedColumns_, static_cast<int64_t>(rowStarts_.size()),
          malformedCount_,  maxContiguousRun_,
          malformedRows_,   unterminatedQuote_};
}

CSVParseState CSVRecordIndex::parseState() const {
  const CSVStructureStats stats = statistics();
  if (stats.rowCount == 0 && isComplete()) return CSVParseState::normal;
  const CSVParseState state = gradeState(stats);
  return state == CSVParseState::failed ? CSVParseState::degraded : state;
}

bool CSVRecordIndex::isComplete() const {
  base::MutexLock lock(mutex_);
  return isComplete_;
}

int64_t CSVRecordIndex::bytesScanned() const {
  base::MutexLock lock(mutex_);
  return bytesScanned_;
}

int64_t CSVRecordIndex::totalBytes() const {
  base::MutexLock lock(mutex_);
  return totalBytes_;
}

std::vector<int64_t> CSVRecordIndex::rowStarts(int64_t from, int64_t count) const {
  base::MutexLock lock(mutex_);
  const auto rows = static_cast<int64_t>(rowStarts_.size());
  from = std::clamp<int64_t>(from, 0, rows);
  const int64_t to = count <= 0 ? from : std::min(rows, from + std::min(count, rows - from));
  return {rowStarts_.begin() + from, rowStarts_.begin() + to};
}

// ---- Edit patches ----

void CSVRecordIndex::shiftRowsAfter(int64_t row, int64_t delta) {
  if (delta == 0) return;
  base::MutexLock lock(mutex_);
  const auto count = static_cast<int64_t>(rowStarts_.size());
  for (int64_t i = std::max<int64_t>(row + 1, 0); i < count; ++i) {
    int64_t& start = rowStarts_[static_cast<size_t>(i)];
    start = clampedAdd(start, delta);
  }
  bytesScanned_ = clampedAdd(bytesScanned_, delta);
  totalBytes_ = clampedAdd(totalBytes_, delta);
  recomputeStatisticsLocked();
}

void CSVRecordIndex::removeRows(std::span<const int64_t> rows) {
  base::MutexLock lock(mutex_);
  const auto count = static_cast<int64_t>(rowStarts_.size());
  std::vector<bool> removed(static_cast<size_t>(count), false);
  int64_t removedCount = 0;
  for (const int64_t row : rows) {
    if (row < 0 || row >= count || removed[static_cast<size_t>(row)]) continue;
    removed[static_cast<size_t>(row)] = true;
    ++removedCount;
  }
  if (removedCount == 0 || removedCount == count) return;

  std::vector<int64_t> starts;
  std::vector<uint16_t> fields;
  std::vector<bool> anomalies;
  starts.reserve(static_cast<size_t>(count - removedCount));
  fields.reserve(starts.capacity());
  anomalies.reserve(starts.capacity());
  int64_t removedBytes = 0;
  for (int64_t row = 0; row < count; ++row) {
    const auto i = static_cast<size_t>(row);
    if (removed[i]) {
      removedBytes += rowEndLocked(row) - rowStarts_[i];
      continue;
    }
    starts.push_back(clampedAdd(rowStarts_[i], -removedBytes));
    fields.push_back(fieldCounts_[i]);
    anomalies.push_back(anomalousLocked(row));
  }
  rowStarts_ = std::move(starts);
  fieldCounts_ = std::move(fields);
  anomalyBits_.assign((rowStarts_.size() + 63) / 64, 0);
  for (size_t row = 0; row < anomalies.size(); ++row)
    if (anomalies[row]) anomalyBits_[row / 64] |= uint64_t{1} << (row % 64);
  bytesScanned_ = clampedAdd(bytesScanned_, -removedBytes);
  totalBytes_ = clampedAdd(totalBytes_, -removedBytes);
  recomputeStatisticsLocked();
}

void CSVRecordIndex::replaceRows(int64_t from, int64_t to, std::span<const int64_t> newStarts,
                                 std::span<const int64_t> newFieldCounts, int64_t byteDelta) {
  base::MutexLock lock(mutex_);
  replaceRowsLocked(from, to, newStarts, newFieldCounts, {}, byteDelta);
}

void CSVRecordIndex::replaceRows(int64_t from, int64_t to, std::span<const ScannedRecord> newRows,
                                 int64_t byteDelta) {
  std::vector<int64_t> starts;
  std::vector<int64_t> fields;
  std::vector<uint8_t> anomalous;
  for (const ScannedRecord& row : newRows) {
    starts.push_back(row.start);
    fields.push_back(row.fieldCount);
    anomalous.push_back(row.malformed ? 1 : 0);
  }
  base::MutexLock lock(mutex_);
  replaceRowsLocked(from, to, starts, fields, anomalous, byteDelta);
}

void CSVRecordIndex::replaceRowsLocked(int64_t from, int64_t to, std::span<const int64_t> newStarts,
                                       std::span<const int64_t> newFieldCounts,
                                       std::span<const uint8_t> newAnomalous, int64_t byteDelta) {
  const auto count = static_cast<int64_t>(rowStarts_.size());
  if (from < 0 || from > to || to > count || newStarts.size() != newFieldCounts.size()) return;
  if (!newAnomalous.empty() && newAnomalous.size() != newStarts.size()) return;

  std::vector<bool> anomalies;
  anomalies.reserve(static_cast<size_t>(count - (to - from)) + newStarts.size());
  for (int64_t row = 0; row < from; ++row) anomalies.push_back(anomalousLocked(row));
  if (newAnomalous.empty()) {
    anomalies.insert(anomalies.end(), newStarts.size(), false);
  } else {
    for (const uint8_t flag : newAnomalous) anomalies.push_back(flag != 0);
  }
  for (int64_t row = to; row < count; ++row) anomalies.push_back(anomalousLocked(row));

  std::vector<int64_t> tailStarts(rowStarts_.begin() + to, rowStarts_.end());
  for (int64_t& start : tailStarts) start = clampedAdd(start, byteDelta);
  rowStarts_.resize(static_cast<size_t>(from));
  rowStarts_.insert(rowStarts_.end(), newStarts.begin(), newStarts.end());
  rowStarts_.insert(rowStarts_.end(), tailStarts.begin(), tailStarts.end());

  std::vector<uint16_t> tailFields(fieldCounts_.begin() + to, fieldCounts_.end());
  fieldCounts_.resize(static_cast<size_t>(from));
  for (const int64_t fields : newFieldCounts) fieldCounts_.push_back(saturated(fields));
  fieldCounts_.insert(fieldCounts_.end(), tailFields.begin(), tailFields.end());

  anomalyBits_.assign((rowStarts_.size() + 63) / 64, 0);
  for (size_t row = 0; row < anomalies.size(); ++row)
    if (anomalies[row]) anomalyBits_[row / 64] |= uint64_t{1} << (row % 64);
  bytesScanned_ = clampedAdd(bytesScanned_, byteDelta);
  totalBytes_ = clampedAdd(totalBytes_, byteDelta);
  recomputeStatisticsLocked();
}

void CSVRecordIndex::applyColumnEdit(std::span<const int64_t> rowByteDeltas,
                                     std::optional<std::span<const int64_t>> newFieldCounts,
                                     int64_t columnDelta) {
  base::MutexLock lock(mutex_);
  const size_t count = rowStarts_.size();
  if (rowByteDeltas.size() != count) return;
  int64_t shift = 0;
  for (size_t row = 0; row < count; ++row) {
    rowStarts_[row] = clampedAdd(rowStarts_[row], shift);
    shift += rowByteDeltas[row];
  }
  bytesScanned_ = clampedAdd(bytesScanned_, shift);
  totalBytes_ = clampedAdd(totalBytes_, shift);
  if (newFieldCounts && newFieldCounts->size() == count)
    std::ranges::transform(*newFieldCounts, fieldCounts_.begin(), saturated);
  if (columnDelta != 0) expectedColumns_ = std::max<int64_t>(expectedColumns_ + columnDelta, 1);
  recomputeStatisticsLocked();
}

}  // namespace quorin::csv
