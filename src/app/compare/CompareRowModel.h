#pragma once

#include <QAbstractTableModel>
#include <QString>
#include <list>
#include <memory>
#include <optional>
#include <unordered_map>

#include "compare/CompareSide.h"
#include "compare/DiffAlignment.h"

namespace quorin::app {

// What a finished comparison shows: both sides (their snapshots) and the
// aligned rows.
struct CompareDisplay {
  compare::CompareSide left;
  compare::CompareSide right;
  compare::DiffAlignment alignment;
};

// The aligned rows of a comparison for a QTableView: columns are the left
// line number, the left text, the right line number and the right text. A
// filler row shows nothing on its side; rows of a change are tinted (changed
// on both sides, removed on the left, added on the right).
//
// Line texts are read from the sides' snapshots when a row is shown and kept
// in a small cache, so millions of rows cost the alignment's arrays only.
// Main thread only; reading a snapshot is safe there.
class CompareRowModel : public QAbstractTableModel {
  Q_OBJECT

 public:
  enum Column { leftNumber, leftText, rightNumber, rightText };

  using QAbstractTableModel::QAbstractTableModel;

  // Shows a comparison (nothing: an empty table).
  void setDisplay(std::shared_ptr<const CompareDisplay> display);
  const CompareDisplay* display() const { return display_.get(); }

  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

  // The 0-based line a row shows on each side, or kFillerRow.
  int32_t leftLine(int row) const;
  int32_t rightLine(int row) const;
  bool isChanged(int row) const;
  // The first row of the next change block after `row` (−1: from the top),
  // or of the last block before it; nothing past the first or last block.
  std::optional<int> nextChange(int row) const;
  std::optional<int> previousChange(int row) const;
  // The 0-based block that holds `row`, if it belongs to one.
  std::optional<int> blockAt(int row) const;
  int blockCount() const;

 private:
  QString lineText(compare::Side side, int32_t line) const;

  std::shared_ptr<const CompareDisplay> display_;
  using CacheKey = int64_t;                                // line * 2 + side
  mutable std::list<std::pair<CacheKey, QString>> cache_;  // most recent first
  mutable std::unordered_map<CacheKey, std::list<std::pair<CacheKey, QString>>::iterator> cacheIndex_;
};

}  // namespace quorin::app
