#include "app/compare/CompareRowModel.h"

#include <QBrush>
#include <QColor>
#include <algorithm>

#include "compare/CompareReport.h"

namespace quorin::app {
namespace {

// What a cell shows of a long line; the view elides it anyway.
constexpr int64_t kShownBytes = 2000;
constexpr size_t kCachedLines = 1024;

const QColor kChangedTint(255, 244, 200);
const QColor kRemovedTint(255, 222, 222);
const QColor kAddedTint(218, 246, 218);
const QColor kFillerTint(236, 236, 236);

}  // namespace

void CompareRowModel::setDisplay(std::shared_ptr<const CompareDisplay> display) {
  beginResetModel();
  display_ = std::move(display);
  cache_.clear();
  cacheIndex_.clear();
  endResetModel();
}

int CompareRowModel::rowCount(const QModelIndex& parent) const {
  if (parent.isValid() || !display_) return 0;
  return static_cast<int>(display_->alignment.rowCount());
}

int CompareRowModel::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : 4; }

int32_t CompareRowModel::leftLine(int row) const {
  return display_ ? display_->alignment.leftLines[static_cast<size_t>(row)] : compare::kFillerRow;
}

int32_t CompareRowModel::rightLine(int row) const {
  return display_ ? display_->alignment.rightLines[static_cast<size_t>(row)] : compare::kFillerRow;
}

bool CompareRowModel::isChanged(int row) const {
  return display_ && display_->alignment.changed[static_cast<size_t>(row)];
}

QString CompareRowModel::lineText(compare::Side side, int32_t line) const {
  const CacheKey key = int64_t{line} * 2 + (side == compare::Side::right ? 1 : 0);
  if (auto it = cacheIndex_.find(key); it != cacheIndex_.end()) {
    cache_.splice(cache_.begin(), cache_, it->second);
    return it->second->second;
  }
  const auto& from = side == compare::Side::left ? display_->left : display_->right;
  const std::string text = compare::sideLineText(from, line, kShownBytes);
  QString shown = QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
  cache_.emplace_front(key, shown);
  cacheIndex_[key] = cache_.begin();
  if (cache_.size() > kCachedLines) {
    cacheIndex_.erase(cache_.back().first);
    cache_.pop_back();
  }
  return shown;
}

QVariant CompareRowModel::data(const QModelIndex& index, int role) const {
  if (!display_ || !index.isValid() || index.row() >= rowCount()) return {};
  const int row = index.row();
  const bool leftSide = index.column() == leftNumber || index.column() == leftText;
  const int32_t line = leftSide ? leftLine(row) : rightLine(row);
  switch (role) {
    case Qt::DisplayRole:
      if (line == compare::kFillerRow) return {};
      if (index.column() == leftNumber || index.column() == rightNumber)
        return QString::number(int64_t{line} + 1);
      return lineText(leftSide ? compare::Side::left : compare::Side::right, line);
    case Qt::BackgroundRole: {
      if (!isChanged(row)) return {};
      if (line == compare::kFillerRow) return QBrush(kFillerTint, Qt::BDiagPattern);
      const bool otherFiller = (leftSide ? rightLine(row) : leftLine(row)) == compare::kFillerRow;
      if (!otherFiller) return kChangedTint;
      return leftSide ? kRemovedTint : kAddedTint;
    }
    case Qt::ForegroundRole:
      if (index.column() == leftNumber || index.column() == rightNumber) return QColor(128, 128, 128);
      return {};
    case Qt::TextAlignmentRole:
      if (index.column() == leftNumber || index.column() == rightNumber)
        return QVariant(Qt::AlignRight | Qt::AlignVCenter);
      return {};
    default: return {};
  }
}

QVariant CompareRowModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
  switch (section) {
    case leftText: return display_ ? QString::fromStdString(display_->left.displayName) : tr("Left");
    case rightText: return display_ ? QString::fromStdString(display_->right.displayName) : tr("Right");
    default: return QStringLiteral("#");
  }
}

int CompareRowModel::blockCount() const {
  return display_ ? static_cast<int>(display_->alignment.blocks.size()) : 0;
}

std::optional<int> CompareRowModel::nextChange(int row) const {
  if (!display_) return std::nullopt;
  const auto& blocks = display_->alignment.blocks;
  const auto it = std::ranges::upper_bound(blocks, int64_t{row}, {}, &compare::RowRange::start);
  if (it == blocks.end()) return std::nullopt;
  return static_cast<int>(it->start);
}

std::optional<int> CompareRowModel::previousChange(int row) const {
  if (!display_) return std::nullopt;
  const auto& blocks = display_->alignment.blocks;
  // The block that starts before `row`; from inside a block, the one before it.
  auto it = std::ranges::lower_bound(blocks, int64_t{row}, {}, &compare::RowRange::start);
  if (it == blocks.begin()) return std::nullopt;
  --it;
  if (row < it->start + it->count) {
    if (it == blocks.begin()) return std::nullopt;
    --it;
  }
  return static_cast<int>(it->start);
}

std::optional<int> CompareRowModel::blockAt(int row) const {
  if (!display_) return std::nullopt;
  const auto& blocks = display_->alignment.blocks;
  auto it = std::ranges::upper_bound(blocks, int64_t{row}, {}, &compare::RowRange::start);
  if (it == blocks.begin()) return std::nullopt;
  --it;
  if (row >= it->start + it->count) return std::nullopt;
  return static_cast<int>(it - blocks.begin());
}

}  // namespace quorin::app
