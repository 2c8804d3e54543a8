#include "app/bookmarks/BookmarksModel.h"

#include "app/DocumentTab.h"
#include "app/bookmarks/BookmarkTexts.h"

namespace quorin::app {
namespace {

constexpr size_t kMaxCachedRows = 4096;

QString qt(const std::string& text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

}  // namespace

std::string csvField(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + '"';
}

BookmarksModel::BookmarksModel(QObject* parent) : QAbstractTableModel(parent) {}

void BookmarksModel::showTab(DocumentTab* tab) {
  if (tab == tab_ && tab) return;
  disconnect(changes_);
  tab_ = tab;
  if (tab) changes_ = connect(tab, &DocumentTab::bookmarksChanged, this, &BookmarksModel::reload);
  reload();
}

void BookmarksModel::reload() {
  beginResetModel();
  marks_ = tab_ ? tab_->bookmarks().set().all() : std::vector<bookmarks::Bookmark>();
  lost_ = tab_ ? tab_->lostBookmarks() : std::vector<bookmarks::SidecarBookmark>();
  times_.clear();
  texts_.clear();
  endResetModel();
}

std::optional<int64_t> BookmarksModel::lineAt(int row) const {
  if (row < 0 || isLost(row)) return std::nullopt;
  return marks_[static_cast<size_t>(row)].line;
}

std::optional<int64_t> BookmarksModel::lostLineAt(int row) const {
  if (row < 0 || !isLost(row) || row >= rowCount()) return std::nullopt;
  return lost_[static_cast<size_t>(row) - marks_.size()].line;
}

int BookmarksModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(marks_.size() + lost_.size());
}

int BookmarksModel::columnCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : columnCount_;
}

QString BookmarksModel::timeOf(int64_t line) const {
  if (times_.size() > kMaxCachedRows) times_.clear();
  const auto [at, added] = times_.try_emplace(line);
  if (added && tab_) at->second = tab_->lineTimeText(line);
  return at->second;
}

QString BookmarksModel::textOf(int64_t line) const {
  if (texts_.size() > kMaxCachedRows) texts_.clear();
  const auto [at, added] = texts_.try_emplace(line);
  if (!added || !tab_) return at->second;
  const auto snapshot = tab_->document().snapshot();
  const auto start = snapshot.lines.lineStart(line);
  if (!start) return at->second;
  const int64_t end = snapshot.lines.lineStart(line + 1).value_or(snapshot.text.totalLength());
  std::string text = snapshot.text.text({*start, std::min(end, *start + kTextBytes)});
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  at->second = qt(text);
  if (end - *start > kTextBytes) at->second += QStringLiteral("…");
  return at->second;
}

QString BookmarksModel::cell(int row, int column) const {
  if (isLost(row)) {
    const auto& mark = lost_[static_cast<size_t>(row) - marks_.size()];
    switch (column) {
      case lineColumn: return BookmarkTexts::line(mark.line);
      case noteColumn: return qt(mark.note);
      case textColumn: return BookmarkTexts::lost();
      default: return {};
    }
  }
  const auto& mark = marks_[static_cast<size_t>(row)];
  switch (column) {
    case lineColumn: return BookmarkTexts::line(mark.line);
    case timeColumn: return timeOf(mark.line);
    case noteColumn: return qt(mark.note);
    case textColumn: return textOf(mark.line);
    default: return {};
  }
}

QVariant BookmarksModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= rowCount()) return {};
  if (role == Qt::DisplayRole) {
    QString text = cell(index.row(), index.column());
    // A note of several lines shows its first in the row, the whole of it as a tool tip.
    if (index.column() == noteColumn) text = text.section(QLatin1Char('\n'), 0, 0);
    return text;
  }
  if (role == Qt::EditRole || role == Qt::ToolTipRole) return cell(index.row(), index.column());
  if (role == Qt::TextAlignmentRole && index.column() == lineColumn)
    return QVariant(Qt::AlignRight | Qt::AlignVCenter);
  if (role == Qt::ForegroundRole && isLost(index.row())) return QColor(Qt::gray);
  return {};
}

QVariant BookmarksModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
  switch (section) {
    case lineColumn: return tr("Line");
    case timeColumn: return tr("Time");
    case noteColumn: return tr("Note");
    case textColumn: return tr("Text");
    default: return {};
  }
}

Qt::ItemFlags BookmarksModel::flags(const QModelIndex& index) const {
  Qt::ItemFlags flags = QAbstractTableModel::flags(index);
  if (index.isValid() && index.column() == noteColumn && !isLost(index.row())) flags |= Qt::ItemIsEditable;
  return flags;
}

bool BookmarksModel::setData(const QModelIndex& index, const QVariant& value, int role) {
  if (role != Qt::EditRole || !tab_ || index.column() != noteColumn) return false;
  const auto line = lineAt(index.row());
  if (!line) return false;
  // The change comes back as a reset of the rows.
  tab_->setBookmarkNote(*line, value.toString());
  return true;
}

std::string BookmarksModel::toCsv() const {
  std::string csv = "line,time,note,text\r\n";
  for (int row = 0; row < rowCount(); ++row) {
    for (int column = 0; column < columnCount_; ++column) {
      if (column > 0) csv += ',';
      // Numbers plain, not grouped: a spreadsheet reads "1,234" as text.
      const std::string text =
          column == lineColumn
              ? std::to_string((isLost(row) ? lost_[static_cast<size_t>(row) - marks_.size()].line
                                            : marks_[static_cast<size_t>(row)].line) +
                               1)
              : cell(row, column).toStdString();
      csv += csvField(text);
    }
    csv += "\r\n";
  }
  return csv;
}

}  // namespace quorin::app
