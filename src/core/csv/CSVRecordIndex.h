#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/Mutex.h"
#include "csv/CSVDelimiter.h"
#include "csv/CSVParseState.h"
#include "csv/RecordScanner.h"
#include "dispatch/Executor.h"
#include "jobs/JobRegistry.h"
#include "storage/ByteRange.h"
#include "storage/PieceTableSnapshot.h"

namespace quorin::csv {

inline constexpr int64_t kIndexChunkBytes = 4 * 1024 * 1024;
inline constexpr int64_t kExpectedColumnsSample = 1'000;
inline constexpr size_t kMalformedRowsCap = 10'000;
inline constexpr uint16_t kMaxFieldCount = UINT16_MAX;

// Where every record (row) of a table starts, how many fields it has and
// whether the scanner flagged it, plus the running structure statistics the
// parse state is graded from. Rows are records: a quoted field may hold line
// breaks, so a row may span several lines.
//
// Built by one background scan over a snapshot (build), readable while it
// grows, and patched in place by the grid's own edits so that a cell edit or
// a row deletion needs no rescan. A row is malformed when its field count is
// not expectedColumns or its anomaly bit is set. expectedColumns is settled
// from the first 1,000 rows (the most frequent count, the larger on a tie);
// until then no statistics are kept.
//
// Storage: 8 + 2 bytes and one bit per row. Field counts saturate at 65,535.
// Thread-safety: every member may be called from any thread; one lock guards
// everything, taken per query and once per chunk by the scan.
// Failure: nothing fails. Queries out of range return nothing (or
// "anomalous"), and patches that make no sense are ignored.
class CSVRecordIndex {
 public:
  CSVRecordIndex(CSVDelimiter delimiter, int64_t totalBytes);
  CSVRecordIndex(const CSVRecordIndex&) = delete;
  CSVRecordIndex& operator=(const CSVRecordIndex&) = delete;

  // Scans `text` from offset 0 in chunks of chunkBytes (4 MiB; tests pass
  // tiny sizes), committing each chunk's rows, until the end (then marks the
  // index complete) or until `token` is cancelled, checked before every
  // chunk (the index is then left incomplete). Progress goes to the token.
  // Blocking; call it once, on a background thread.
  void build(const storage::PieceTableSnapshot& text, uint8_t terminator, jobs::JobToken* token = nullptr,
             int64_t chunkBytes = kIndexChunkBytes);

  // Registers a job titled `title` and runs build() on `executor`.
  // onFinished (optional) runs on the executor's thread once the build ended,
  // completed or cancelled. The returned token cancels it.
  static std::shared_ptr<jobs::JobToken> startBuild(std::shared_ptr<CSVRecordIndex> index,
                                                    storage::PieceTableSnapshot text, uint8_t terminator,
                                                    jobs::JobRegistry& registry, dispatch::Executor& executor,
                                                    std::string title,
                                                    std::function<void()> onFinished = nullptr);

  // The scan's own steps, public for scanners other than build(): append a
  // batch of rows ending at byte scannedTo; then, at the end of the text,
  // the trailing record (if any) and whether the text ends inside quotes.
  void commitChunk(std::span<const ScannedRecord> rows, int64_t scannedTo);
  void complete(std::optional<ScannedRecord> trailing, bool unterminatedQuote, int64_t scannedTo);

  // Queries.
  const CSVDelimiter& delimiter() const { return delimiter_; }
  int64_t rowCount() const;
  std::optional<int64_t> rowStart(int64_t row) const;
  std::optional<uint16_t> fieldCount(int64_t row) const;
  // [start, end) of a row; nothing for the last row until the scan completed.
  std::optional<storage::ByteRange> rowSpan(int64_t row) const;
  // The row whose span holds `offset`; nothing before the first row or at or past bytesScanned.
  std::optional<int64_t> rowAtOffset(int64_t offset) const;
  // Out-of-range rows count as anomalous.
  bool isAnomalous(int64_t row) const;
  int64_t anomalyRowCount() const;
  CSVStructureStats statistics() const;
  // Graded from statistics(), except that a complete index without rows is
  // normal and failed is reported as degraded: the grid stays open read-only
  // rather than falling back to raw text.
  CSVParseState parseState() const;
  bool isComplete() const;
  int64_t bytesScanned() const;
  int64_t totalBytes() const;
  // Rows [from, from + count) clipped to the index, for readers that walk many rows.
  std::vector<int64_t> rowStarts(int64_t from, int64_t count) const;

  // Edit patches, applied in the order the grid edits the document. Each
  // ends by recomputing the statistics.
  //
  // A row's length changed by `delta`: the rows after `row` move.
  void shiftRowsAfter(int64_t row, int64_t delta);
  // Rows deleted from the text; ignored unless at least one and fewer than
  // all rows go (duplicates and unknown numbers do not count).
  void removeRows(std::span<const int64_t> rows);
  // Rows [from, to) replaced by rows starting at newStarts with newFieldCounts
  // (same length); the text after them moved by byteDelta.
  void replaceRows(int64_t from, int64_t to, std::span<const int64_t> newStarts,
                   std::span<const int64_t> newFieldCounts, int64_t byteDelta);
  // The same with the new rows as a scanner found them (absolute starts),
  // keeping their anomaly flags: for an edit whose rows were scanned again.
  void replaceRows(int64_t from, int64_t to, std::span<const ScannedRecord> newRows, int64_t byteDelta);
  // A column inserted, deleted or rewritten across all rows: one byte delta
  // per row (else ignored), optionally every row's new field count (used only
  // with one per row), and the change in column count (expectedColumns stays at least 1).
  void applyColumnEdit(std::span<const int64_t> rowByteDeltas,
                       std::optional<std::span<const int64_t>> newFieldCounts, int64_t columnDelta);

 private:
  bool anomalousLocked(int64_t row) const REQUIRES(mutex_);
  void setAnomalyLocked(int64_t row, bool on) REQUIRES(mutex_);
  void growAnomalyBitsLocked() REQUIRES(mutex_);
  int64_t rowEndLocked(int64_t row) const
      REQUIRES(mutex_);  // rowStarts[row + 1], or bytesScanned for the last row
  void appendRowLocked(const ScannedRecord& row) REQUIRES(mutex_);
  void settleExpectedColumnsLocked() REQUIRES(mutex_);
  void countRowLocked(int64_t row) REQUIRES(mutex_);
  void recomputeStatisticsLocked() REQUIRES(mutex_);
  // newAnomalous is empty (all clear) or one flag per new row.
  void replaceRowsLocked(int64_t from, int64_t to, std::span<const int64_t> newStarts,
                         std::span<const int64_t> newFieldCounts, std::span<const uint8_t> newAnomalous,
                         int64_t byteDelta) REQUIRES(mutex_);

  const CSVDelimiter delimiter_;
  mutable base::Mutex mutex_;
  std::vector<int64_t> rowStarts_ GUARDED_BY(mutex_);
  std::vector<uint16_t> fieldCounts_ GUARDED_BY(mutex_);
  std::vector<uint64_t> anomalyBits_ GUARDED_BY(mutex_);
  int64_t anomalyRowCount_ GUARDED_BY(mutex_) = 0;
  int64_t expectedColumns_ GUARDED_BY(mutex_) = 0;
  bool expectedLocked_ GUARDED_BY(mutex_) = false;
  int64_t malformedCount_ GUARDED_BY(mutex_) = 0;
  int64_t maxContiguousRun_ GUARDED_BY(mutex_) = 0;
  int64_t currentRun_ GUARDED_BY(mutex_) = 0;
  std::vector<int64_t> malformedRows_ GUARDED_BY(mutex_);
  bool unterminatedQuote_ GUARDED_BY(mutex_) = false;
  int64_t bytesScanned_ GUARDED_BY(mutex_) = 0;
  int64_t totalBytes_ GUARDED_BY(mutex_) = 0;
  bool isComplete_ GUARDED_BY(mutex_) = false;
};

}  // namespace quorin::csv
