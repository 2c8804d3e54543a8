#include "csv/EditRescan.h"

#include <algorithm>

#include "csv/RecordScanner.h"

namespace quorin::csv {
namespace {

constexpr int64_t kPieceBytes = 1024 * 1024;

}  // namespace

std::optional<EditRescan> rescanEditedRows(const CSVRecordIndex& index, const storage::EditResult& edit,
                                           const storage::PieceTableSnapshot& text, uint8_t terminator,
                                           int64_t maxBytes) {
  const int64_t rows = index.rowCount();
  const int64_t scanned = index.bytesScanned();
  const int64_t start = edit.docByteStart;
  const int64_t delta = edit.netByteDelta;
  if (rows == 0 || start > scanned) return std::nullopt;
  if (edit.bytesInserted == 0 && edit.bytesRemoved == 0) return EditRescan{1, 0, {}};
  const int64_t first = index.rowAtOffset(start).value_or(rows - 1);
  int64_t last = first;
  if (edit.bytesRemoved > 0) last = index.rowAtOffset(start + edit.bytesRemoved - 1).value_or(rows - 1);
  // The index's "ends inside quotes" flag has no patch: such a text is rebuilt once its last row changes.
  const bool endedInsideQuotes = index.statistics().unterminatedQuote;

  const int64_t from = *index.rowStart(first);
  RecordScanner scanner(index.delimiter().byte, terminator);
  std::vector<ScannedRecord> records;
  std::vector<uint8_t> buffer;
  int64_t done = from;  // new-text offset scanned up to
  while (true) {
    const bool throughEnd = last == rows - 1;
    const int64_t to = (throughEnd ? scanned : *index.rowStart(last + 1)) + delta;
    if (to < done || to - from > maxBytes) return std::nullopt;
    while (done < to) {
      const int64_t piece = std::min(kPieceBytes, to - done);
      buffer.resize(static_cast<size_t>(piece));
      if (text.copyBytes({done, done + piece}, buffer.data()) != piece) return std::nullopt;
      scanner.scan(buffer, records);
      done += piece;
    }
    if (throughEnd) {
      if (to != text.totalLength() || scanner.insideQuotes() || endedInsideQuotes) return std::nullopt;
      if (auto trailing = scanner.trailingRecord()) records.push_back(*trailing);
      break;
    }
    if (!scanner.insideQuotes() && !scanner.trailingRecord()) break;
    ++last;
  }
  if (records.empty() && last + 1 - first == rows) return std::nullopt;
  for (auto& record : records) record.start += from;
  return EditRescan{first, last, std::move(records)};
}

}  // namespace quorin::csv
