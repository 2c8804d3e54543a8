#include "app/csv/CsvTableModel.h"

#include <QColor>
#include <QLocale>
#include <algorithm>
#include <climits>
#include <filesystem>

#include "app/csv/CsvTexts.h"
#include "csv/DelimiterDetection.h"
#include "csv/FieldSplit.h"

namespace quorin::app {
namespace {

// What a cell shows of a long value (the editor and the tooltip get more).
constexpr int kDisplayChars = 1000;
constexpr int kTooltipChars = 4000;
constexpr size_t kCachedRows = 512;
// Rebuilds wait for this much quiet, so typing in the text view does not start one per key.
constexpr uint64_t kRebuildDelayNs = 300'000'000;

QString q(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

QString oneLine(const QString& value, int maxChars) {
  QString shown = value.size() > maxChars ? value.left(maxChars) + QStringLiteral("…") : value;
  shown.replace(QStringLiteral("\r\n"), QStringLiteral("↵")).replace(QLatin1Char('\n'), QStringLiteral("↵"));
  shown.replace(QLatin1Char('\r'), QStringLiteral("↵"));
  return shown;
}

}  // namespace

CsvTableModel::CsvTableModel(std::shared_ptr<document::Document> document, csv::CSVDelimiter delimiter,
                             dispatch::MainQueue& mainQueue, jobs::JobRegistry& jobs,
                             std::shared_ptr<dispatch::Executor> indexQueue, QObject* parent)
    : QAbstractTableModel(parent),
      document_(std::move(document)),
      delimiter_(std::move(delimiter)),
      terminator_(csv::recordTerminator(document_->lineEnding())),
      mainQueue_(mainQueue),
      jobs_(jobs),
      indexQueue_(std::move(indexQueue)),
      alive_(std::make_shared<CsvTableModel*>(this)),
      text_(document_->snapshot().text),
      announcer_(QLocale().groupSeparator().toStdString()) {
  listenerToken_ = document_->addChangeListener(
      [this](const document::DocumentChange& change) { onDocumentChange(change); });
  startBuild(Grading::fresh, true);
}

CsvTableModel::~CsvTableModel() {
  *alive_ = nullptr;
  document_->removeChangeListener(listenerToken_);
  if (token_) token_->cancel();
}

// ---- Building ----

void CsvTableModel::startBuild(Grading grading, bool progressive) {
  if (token_) token_->cancel();
  const uint64_t generation = ++generation_;
  auto snapshot = document_->snapshot().text;
  auto index = std::make_shared<csv::CSVRecordIndex>(delimiter_, snapshot.totalLength());
  building_ = index;
  buildGrading_ = grading;
  cancelled_ = false;
  stale_ = !progressive;
  if (progressive) {
    index_ = index;
    text_ = snapshot;
    resetView();
  } else {
    buildingText_ = snapshot;
  }
  std::string title = "Indexing table";
  if (!document_->isUntitled()) title += " " + std::filesystem::path(document_->path()).filename().string();
  std::weak_ptr<CsvTableModel*> alive = alive_;
  dispatch::MainQueue* queue = &mainQueue_;
  token_ = csv::CSVRecordIndex::startBuild(index, snapshot, terminator_, jobs_, *indexQueue_,
                                           std::move(title), [alive, queue, generation] {
                                             queue->post([alive, generation] {
                                               const auto model = alive.lock();
                                               if (model && *model) (*model)->buildFinished(generation);
                                             });
                                           });
  emit buildStateChanged();
}

void CsvTableModel::buildFinished(uint64_t generation) {
  if (generation != generation_ || !building_) return;
  auto index = std::move(building_);
  building_.reset();
  token_.reset();
  if (!index->isComplete()) {
    cancelled_ = true;
    sync();
    emit statusMessage(CsvTexts::cancelled(), false);
    emit buildStateChanged();
    return;
  }
  if (index != index_) {
    index_ = std::move(index);
    text_ = *buildingText_;
    stale_ = false;
    resetView();
  } else {
    sync();
  }
  buildingText_.reset();
  grade(buildGrading_);
  emit buildStateChanged();
}

void CsvTableModel::cancelBuild() {
  if (token_) token_->cancel();
}

void CsvTableModel::rebuild() {
  if (inert_) return;
  startBuild(announcer_.effectiveState() ? Grading::observed : Grading::fresh, !stale_);
}

void CsvTableModel::scheduleRebuild() {
  // The text moved on from what is on screen; keep showing it (read-only)
  // and index the new text once the edits pause.
  if (token_) token_->cancel();
  ++generation_;
  building_.reset();
  token_.reset();
  stale_ = true;
  const uint64_t ticket = ++rebuildTicket_;
  std::weak_ptr<CsvTableModel*> alive = alive_;
  mainQueue_.postAfter(kRebuildDelayNs, [alive, ticket] {
    const auto model = alive.lock();
    if (!model || !*model || (*model)->rebuildTicket_ != ticket || (*model)->inert_) return;
    (*model)->startBuild((*model)->announcer_.effectiveState() ? Grading::observed : Grading::fresh, false);
  });
  emit buildStateChanged();
}

void CsvTableModel::setDelimiter(const csv::CSVDelimiter& delimiter) {
  if (delimiter == delimiter_ && !inert_) return;
  delimiter_ = delimiter;
  inert_ = false;
  ++rebuildTicket_;
  startBuild(Grading::fresh, true);
}

void CsvTableModel::setFirstRowIsHeader(bool header) {
  if (header == header_) return;
  header_ = header;
  resetView();
}

bool CsvTableModel::isIndexComplete() const { return index_ && index_->isComplete() && !stale_; }

std::optional<double> CsvTableModel::buildProgress() const {
  if (!building_) return std::nullopt;
  if (!token_) return 0.0;
  return token_->progress();
}

bool CsvTableModel::isBuilding() const { return building_ != nullptr || (stale_ && !cancelled_ && !inert_); }

// ---- Grading ----

void CsvTableModel::grade(Grading grading) {
  const csv::CSVStructureStats stats = index_->statistics();
  expectedColumns_ = stats.expectedColumns;
  const csv::CSVParseState state = index_->parseState();
  announce(grading == Grading::fresh ? announcer_.adoptFreshIndex(stats, state) : announcer_.observe(state));
}

void CsvTableModel::announce(const std::optional<std::string>& message) {
  if (!message) return;
  emit statusMessage(q(*message), announcer_.effectiveState() == csv::CSVParseState::degraded);
}

// ---- Edits (the patches are in CsvTableModelPatch.cpp) ----

std::optional<QString> CsvTableModel::editRefusal() const {
  if (document_->isReadOnly()) return q(csv::kReadOnlyCellsMessage);
  if (inert_) return q(csv::kNoLongerParsesMessage);
  if (cancelled_) return CsvTexts::cancelled();
  if (building_ || stale_ || !index_->isComplete()) return CsvTexts::stillIndexing();
  const auto state = announcer_.effectiveState().value_or(index_->parseState());
  if (auto refusal = csv::cellEditRefusal(state, false)) return q(*refusal);
  return std::nullopt;
}

bool CsvTableModel::setData(const QModelIndex& cell, const QVariant& value, int role) {
  if (role != Qt::EditRole || !cell.isValid()) return false;
  if (auto refusal = editRefusal()) {
    emit statusMessage(*refusal, announcer_.effectiveState() == csv::CSVParseState::degraded);
    return false;
  }
  const int64_t recordIndex = recordRow(cell.row());
  const auto span = index_->rowSpan(recordIndex);
  if (!span) return false;
  const std::string bytes = text_.readBytes(*span).value_or("");
  const auto raw = std::span(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  const auto fields = csv::splitFields(raw, delimiter_.byte);
  const std::string typed = value.toString().toStdString();
  const auto column = static_cast<size_t>(cell.column());

  storage::ByteRange range;
  std::string replacement;
  if (column < fields.size()) {
    const csv::CSVField& field = fields[column];
    range = {span->start + field.offset, span->start + field.offset + field.length};
    replacement = csv::quoteValue(typed, delimiter_.byte, field.quoted);
    if (replacement == bytes.substr(static_cast<size_t>(field.offset), static_cast<size_t>(field.length)))
      return true;
  } else {
    // A short row: pad it with empty fields up to this column.
    const csv::CSVField& lastField = fields.back();
    const int64_t contentEnd = span->start + lastField.offset + lastField.length;
    range = {contentEnd, contentEnd};
    replacement.assign(column - fields.size() + 1, static_cast<char>(delimiter_.byte));
    replacement += csv::quoteValue(typed, delimiter_.byte, false);
  }
  const int64_t newEnd = range.start + static_cast<int64_t>(replacement.size());
  auto outcome = document_->replace(range, replacement, {range.start, range.end}, {range.start, newEnd});
  if (!outcome) {
    emit statusMessage(q(outcome.error().describe()), false);
    return false;
  }
  if (!outcome->undoable) emit statusMessage(q(document::kTooLargeToUndoMessage), false);
  return true;
}

// ---- Reading ----

QStringList CsvTableModel::readRow(int64_t recordRow, int64_t maxBytes, bool* cut) const {
  if (cut) *cut = false;
  if (!index_) return {};
  const auto span = index_->rowSpan(recordRow);
  if (!span) return {};
  const int64_t end = std::min(span->end, span->start + maxBytes);
  if (cut) *cut = end < span->end;
  const std::string bytes = text_.readBytes({span->start, end}).value_or("");
  const auto raw = std::span(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  QStringList values;
  for (const csv::CSVField& field : csv::splitFields(raw, delimiter_.byte)) {
    values.push_back(q(csv::fieldValue(
        raw.subspan(static_cast<size_t>(field.offset), static_cast<size_t>(field.length)), field.quoted)));
  }
  return values;
}

const CsvTableModel::CachedRow& CsvTableModel::row(int64_t recordRow) const {
  if (auto it = cacheIndex_.find(recordRow); it != cacheIndex_.end()) {
    cache_.splice(cache_.begin(), cache_, it->second);
    return it->second->second;
  }
  // The last row of a growing index has no end yet: show it empty, and read it again later.
  static const CachedRow kUnknown;
  if (!index_ || !index_->rowSpan(recordRow)) return kUnknown;
  CachedRow entry;
  entry.values = readRow(recordRow, kDisplayRowBytes, &entry.cut);
  cache_.emplace_front(recordRow, std::move(entry));
  cacheIndex_[recordRow] = cache_.begin();
  if (cache_.size() > kCachedRows) {
    cacheIndex_.erase(cache_.back().first);
    cache_.pop_back();
  }
  return cache_.front().second;
}

int CsvTableModel::rowCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : rows_; }

int CsvTableModel::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : columns_; }

QVariant CsvTableModel::data(const QModelIndex& cell, int role) const {
  if (!cell.isValid() || cell.row() >= rows_ || cell.column() >= columns_) return {};
  const int64_t recordIndex = recordRow(cell.row());
  switch (role) {
    case Qt::DisplayRole:
    case Qt::ToolTipRole: {
      const CachedRow& entry = row(recordIndex);
      if (cell.column() >= entry.values.size()) return {};
      const QString& value = entry.values[cell.column()];
      if (role == Qt::DisplayRole) return oneLine(value, kDisplayChars);
      if (value.size() <= 80 && !value.contains(QLatin1Char('\n'))) return {};
      return value.size() > kTooltipChars ? value.left(kTooltipChars) + QStringLiteral("…") : value;
    }
    case Qt::EditRole: {
      const CachedRow& entry = row(recordIndex);
      if (!entry.cut) return cell.column() < entry.values.size() ? entry.values[cell.column()] : QString();
      const QStringList full = readRow(recordIndex, INT64_MAX, nullptr);
      return cell.column() < full.size() ? full[cell.column()] : QString();
    }
    case Qt::BackgroundRole:
      if (isMalformed(recordIndex)) return QColor(255, 236, 236);
      return {};
    default: return {};
  }
}

bool CsvTableModel::isMalformed(int64_t recordRow) const {
  if (!index_) return false;
  const auto fields = index_->fieldCount(recordRow);
  if (!fields) return false;
  return index_->isAnomalous(recordRow) || (expectedColumns_ > 0 && *fields != expectedColumns_);
}

QVariant CsvTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation == Qt::Horizontal) {
    if (role == Qt::DisplayRole) {
      if (header_ && section < headerLabels_.size() && !headerLabels_[section].isEmpty())
        return oneLine(headerLabels_[section], 200);
      return CsvTexts::column(section + 1);
    }
    if (role == Qt::ToolTipRole) return CsvTexts::column(section + 1);
    return {};
  }
  const int64_t recordIndex = recordRow(section);
  switch (role) {
    case Qt::DisplayRole: return CsvTexts::grouped(section + 1);
    case Qt::ForegroundRole:
      if (isMalformed(recordIndex)) return QColor(176, 0, 0);
      return {};
    case Qt::BackgroundRole:
      if (isMalformed(recordIndex)) return QColor(255, 214, 214);
      return {};
    case Qt::ToolTipRole: {
      if (!isMalformed(recordIndex)) return {};
      const auto fields = index_->fieldCount(recordIndex).value_or(0);
      if (index_->isAnomalous(recordIndex)) return CsvTexts::malformedQuotes(section + 1);
      return CsvTexts::malformedFields(section + 1, fields, expectedColumns_);
    }
    default: return {};
  }
}

Qt::ItemFlags CsvTableModel::flags(const QModelIndex& cell) const {
  if (!cell.isValid()) return Qt::NoItemFlags;
  // Always editable as far as the view knows, so that an attempt reaches
  // the model and a refusal is explained rather than silently ignored.
  return Qt::ItemIsSelectable | Qt::ItemIsEnabled | Qt::ItemIsEditable;
}

// ---- Shape ----

int CsvTableModel::computeColumnCount() const {
  int64_t columns = expectedColumns_;
  if (header_) columns = std::max<int64_t>(columns, headerLabels_.size());
  if (columns == 0 && index_ && index_->rowCount() > 0) columns = index_->fieldCount(0).value_or(1);
  return static_cast<int>(std::clamp<int64_t>(columns, index_ && index_->rowCount() > 0 ? 1 : 0, 65'535));
}

void CsvTableModel::sync() {
  if (!index_) return;
  const int64_t records = index_->rowCount();
  if (header_ && headerLabels_.isEmpty() && records > 0)
    headerLabels_ = readRow(0, kDisplayRowBytes, nullptr);
  if (expectedColumns_ == 0) expectedColumns_ = index_->statistics().expectedColumns;
  const int columns = computeColumnCount();
  if (columns > columns_) {
    beginInsertColumns({}, columns_, columns - 1);
    columns_ = columns;
    endInsertColumns();
  } else if (columns < columns_) {
    beginRemoveColumns({}, columns, columns_ - 1);
    columns_ = columns;
    endRemoveColumns();
  }
  const int rows = static_cast<int>(std::clamp<int64_t>(records - (header_ ? 1 : 0), 0, INT_MAX));
  if (rows > rows_) {
    beginInsertRows({}, rows_, rows - 1);
    rows_ = rows;
    endInsertRows();
  } else if (rows < rows_) {
    resetView();
  }
}

void CsvTableModel::resetView() {
  beginResetModel();
  cache_.clear();
  cacheIndex_.clear();
  headerLabels_.clear();
  rows_ = 0;
  columns_ = 0;
  expectedColumns_ = index_ ? index_->statistics().expectedColumns : 0;
  endResetModel();
  sync();
}

// ---- Records ----

std::optional<int> CsvTableModel::modelRow(int64_t recordRow) const {
  const int64_t row = recordRow - (header_ ? 1 : 0);
  if (row < 0 || row >= rows_) return std::nullopt;
  return static_cast<int>(row);
}

int64_t CsvTableModel::indexedRecords() const {
  const int64_t rows = index_ ? index_->rowCount() : 0;
  return header_ ? std::max<int64_t>(rows - 1, 0) : rows;
}

std::optional<QModelIndex> CsvTableModel::cellAt(int64_t offset) const {
  if (!index_ || rows_ == 0 || columns_ == 0) return std::nullopt;
  const int64_t rows = index_->rowCount();
  const int64_t indexRow = index_->rowAtOffset(offset).value_or(rows - 1);
  const int row = modelRow(indexRow).value_or(indexRow < 1 ? 0 : rows_ - 1);
  // The field holding the offset: as many fields as the row's bytes before it split into, less one.
  int column = 0;
  if (const auto start = index_->rowStart(indexRow); start && offset > *start) {
    const int64_t end = std::min(offset, *start + kDisplayRowBytes);
    const std::string bytes = text_.readBytes({*start, end}).value_or("");
    const auto raw = std::span(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    column = static_cast<int>(csv::splitFields(raw, delimiter_.byte).size()) - 1;
  }
  return index(row, std::clamp(column, 0, columns_ - 1));
}

std::expected<int64_t, QString> CsvTableModel::recordOffset(int64_t record) const {
  if (stale_ || !index_) return std::unexpected(CsvTexts::recordsNotReady());
  const int64_t rows = index_->rowCount();
  if (rows == 0) return std::unexpected(CsvTexts::noRecords());
  // Records are numbered as the grid labels them: from the first row under the header.
  int64_t row = std::max<int64_t>(record, 1) - 1 + (header_ ? 1 : 0);
  if (row >= rows) {
    if (!index_->isComplete())
      return std::unexpected(CsvTexts::recordNotIndexedYet(record, indexedRecords()));
    row = rows - 1;
  }
  return *index_->rowStart(row);
}

}  // namespace quorin::app
