// How the table follows edits of its document: a patch of the rows an edit
// touched, a rebuild when that cannot describe it, or leaving the table when
// the text no longer reads as one.
#include <algorithm>

#include "app/csv/CsvTableModel.h"
#include "csv/DelimiterDetection.h"
#include "csv/EditRescan.h"

namespace quorin::app {
namespace {

// An edit whose rows, scanned again, reach past this is left to a rebuild in
// the background rather than scanned on the main thread.
constexpr int64_t kMaxRescanBytes = 8 * 1024 * 1024;
constexpr double kStillATableShare = 0.8;

QString q(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

}  // namespace

// ---- Edits ----

void CsvTableModel::onDocumentChange(const document::DocumentChange& change) {
  if (inert_) return;
  const auto snapshot = document_->snapshot().text;
  const bool sampleTouched = change.kind == document::DocumentChange::Kind::reload ||
                             change.edit.docByteStart < csv::kDetectionSampleBytes;
  if (sampleTouched && !stillATable(snapshot)) {
    inert_ = true;
    ++rebuildTicket_;
    if (token_) token_->cancel();
    building_.reset();
    token_.reset();
    stale_ = true;
    emit noLongerTable(q(csv::kNoLongerParsesMessage));
    emit buildStateChanged();
    return;
  }
  const bool patchable = change.kind != document::DocumentChange::Kind::reload && !building_ && !stale_ &&
                         !cancelled_ && index_->isComplete();
  if (!patchable || !patch(change.edit, snapshot)) scheduleRebuild();
}

// A table that is already shown stays one on a looser bar than detection
// sets for a new one: its own delimiter must still explain 80 % of the
// sample, in two columns or more. So a row or two broken while the user types
// (or a table shrunk below detection's ten records) keeps the grid, and only
// text that no longer looks like this table at all leaves it.
bool CsvTableModel::stillATable(const storage::PieceTableSnapshot& text) const {
  std::vector<uint8_t> sample(static_cast<size_t>(std::min(text.totalLength(), csv::kDetectionSampleBytes)));
  sample.resize(static_cast<size_t>(text.copyBytes({0, static_cast<int64_t>(sample.size())}, sample.data())));
  const size_t nulScan = std::min(sample.size(), csv::kNulScanBytes);
  if (std::find(sample.begin(), sample.begin() + static_cast<std::ptrdiff_t>(nulScan), 0) !=
      sample.begin() + static_cast<std::ptrdiff_t>(nulScan))
    return false;
  const csv::SampleScore score = csv::scoreSample(sample, delimiter_.byte, terminator_);
  return !score.failed && score.modalFieldCount >= 2 && score.share >= kStillATableShare;
}

// An edit is patched into the index when scanning the rows it touched
// again describes it (see rescanEditedRows); otherwise the caller rebuilds.
bool CsvTableModel::patch(const storage::EditResult& edit, const storage::PieceTableSnapshot& text) {
  auto rescan = csv::rescanEditedRows(*index_, edit, text, terminator_, kMaxRescanBytes);
  if (!rescan) return false;
  if (rescan->firstRow > rescan->lastRow) return true;  // nothing changed
  const int64_t first = rescan->firstRow;
  const int64_t last = rescan->lastRow;
  const int64_t from = *index_->rowStart(first);
  const int64_t delta = edit.netByteDelta;
  const std::vector<csv::ScannedRecord>& records = rescan->rows;
  const auto oldCount = last + 1 - first;
  const auto newCount = static_cast<int64_t>(records.size());

  // The usual cell edit leaves one row with its field count and flag: moving
  // the rows after it is all the index needs, and cheaper than a replacement.
  const bool sameShape = oldCount == 1 && newCount == 1 && records[0].start == from &&
                         records[0].fieldCount == index_->fieldCount(first) &&
                         records[0].malformed == index_->isAnomalous(first);
  if (sameShape) {
    index_->shiftRowsAfter(first, delta);
  } else {
    index_->replaceRows(first, last + 1, records, delta);
  }
  text_ = text;
  expectedColumns_ = index_->statistics().expectedColumns;
  const int h = header_ ? 1 : 0;
  if (newCount == oldCount) {
    for (int64_t row = first; row <= last; ++row) {
      if (auto it = cacheIndex_.find(row); it != cacheIndex_.end()) {
        cache_.erase(it->second);
        cacheIndex_.erase(it);
      }
    }
    if (header_ && first == 0) {
      headerLabels_ = readRow(0, kDisplayRowBytes, nullptr);
      sync();
      emit headerDataChanged(Qt::Horizontal, 0, std::max(columns_ - 1, 0));
    }
    const int top = static_cast<int>(std::max<int64_t>(first - h, 0));
    const int bottom = static_cast<int>(std::min<int64_t>(last - h, rows_ - 1));
    if (top <= bottom && columns_ > 0) {
      emit dataChanged(index(top, 0), index(bottom, columns_ - 1));
      emit headerDataChanged(Qt::Vertical, top, bottom);
    }
  } else if (header_ && first == 0) {
    resetView();
  } else {
    cache_.clear();
    cacheIndex_.clear();
    const int at = static_cast<int>(first - h);
    if (newCount > oldCount) {
      const int added = static_cast<int>(newCount - oldCount);
      beginInsertRows({}, at + static_cast<int>(oldCount), at + static_cast<int>(oldCount) + added - 1);
      rows_ += added;
      endInsertRows();
    } else {
      const int removed = static_cast<int>(oldCount - newCount);
      beginRemoveRows({}, at + static_cast<int>(newCount), at + static_cast<int>(newCount) + removed - 1);
      rows_ -= removed;
      endRemoveRows();
    }
    if (newCount > 0)
      emit dataChanged(index(at, 0), index(at + static_cast<int>(newCount) - 1, columns_ - 1));
    emit headerDataChanged(Qt::Vertical, at, std::max(rows_ - 1, at));
    sync();
  }
  grade(Grading::observed);
  return true;
}

}  // namespace quorin::app
