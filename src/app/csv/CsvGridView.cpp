#include "app/csv/CsvGridView.h"

#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QContextMenuEvent>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QMenu>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>
#include <algorithm>

#include "app/csv/CsvTableModel.h"
#include "app/csv/CsvTexts.h"
#include "csv/DelimiterDetection.h"
#include "dispatch/SerialQueue.h"

namespace quorin::app {
namespace {

constexpr int kCustomItem = 4;
constexpr int kMessageMs = 4000;
constexpr int kPollMs = 150;

QString q(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

}  // namespace

bool CsvTableView::edit(const QModelIndex& index, EditTrigger trigger, QEvent* event) {
  auto* csvModel = qobject_cast<CsvTableModel*>(model());
  if (csvModel && index.isValid() && (trigger & editTriggers())) {
    if (auto refusal = csvModel->editRefusal()) {
      emit editRefused(*refusal);
      return false;
    }
  }
  return QTableView::edit(index, trigger, event);
}

QString CsvTableView::selectedText() const {
  QModelIndexList cells = selectionModel() ? selectionModel()->selectedIndexes() : QModelIndexList{};
  if (cells.size() > kMaxCopiedCells) cells.resize(kMaxCopiedCells);
  std::sort(cells.begin(), cells.end(), [](const QModelIndex& a, const QModelIndex& b) {
    return a.row() != b.row() ? a.row() < b.row() : a.column() < b.column();
  });
  QString text;
  for (qsizetype i = 0; i < cells.size(); ++i) {
    if (i > 0) text += cells[i].row() == cells[i - 1].row() ? QLatin1Char('\t') : QLatin1Char('\n');
    text += cells[i].data(Qt::EditRole).toString();
  }
  return text;
}

void CsvTableView::contextMenuEvent(QContextMenuEvent* event) {
  QMenu menu(this);
  QAction* copy =
      menu.addAction(tr("&Copy"), this, [this] { QGuiApplication::clipboard()->setText(selectedText()); });
  copy->setShortcut(QKeySequence::Copy);
  copy->setEnabled(selectionModel() && selectionModel()->hasSelection());
  const QModelIndex cell = indexAt(event->pos());
  menu.addAction(tr("&Edit Cell"), this, [this, cell] { QAbstractItemView::edit(cell); })
      ->setEnabled(cell.isValid());
  menu.addSeparator();
  menu.addAction(tr("Select &All"), this, &QTableView::selectAll);
  menu.exec(event->globalPos());
}

void CsvTableView::keyPressEvent(QKeyEvent* event) {
  if (event->matches(QKeySequence::Copy)) {
    QGuiApplication::clipboard()->setText(selectedText());
    event->accept();
    return;
  }
  QTableView::keyPressEvent(event);
}

std::expected<csv::CSVDelimiter, QString> CsvGridView::detect(const document::Document& document) {
  const auto text = document.snapshot().text;
  if (auto delimiter = csv::detectDelimiter(text, csv::recordTerminator(document.lineEnding())))
    return *delimiter;
  return std::unexpected(q(csv::kCouldNotParseMessage));
}

CsvGridView::CsvGridView(std::shared_ptr<document::Document> document, csv::CSVDelimiter detected,
                         dispatch::MainQueue& mainQueue, jobs::JobRegistry& jobs, QWidget* parent,
                         std::shared_ptr<dispatch::Executor> indexQueue)
    : QWidget(parent),
      document_(std::move(document)),
      indexQueue_(indexQueue ? std::move(indexQueue)
                             : std::make_shared<dispatch::SerialQueue>("quorin.csvindex")),
      detected_(detected) {
  model_ = new CsvTableModel(document_, detected, mainQueue, jobs, indexQueue_, this);

  picker_ = new QComboBox(this);
  for (const auto& builtIn : csv::CSVDelimiter::builtIns()) {
    QString name = q(builtIn.name);
    if (builtIn == detected) name += CsvTexts::detectedSuffix();
    picker_->addItem(name);
  }
  picker_->addItem(q(csv::kCustomDelimiterName));
  const auto builtIns = csv::CSVDelimiter::builtIns();
  for (int i = 0; i < static_cast<int>(builtIns.size()); ++i)
    if (builtIns[static_cast<size_t>(i)] == detected) picker_->setCurrentIndex(i);
  custom_ = new QLineEdit(this);
  custom_->setPlaceholderText(tr("One character"));
  custom_->setMaxLength(8);
  custom_->setFixedWidth(custom_->fontMetrics().horizontalAdvance(tr("One character")) + 16);
  custom_->hide();
  customError_ = new QLabel(this);
  customError_->setStyleSheet(QStringLiteral("color: #b00000;"));
  customError_->hide();
  header_ = new QCheckBox(tr("First row is header"), this);
  header_->setChecked(true);
  progress_ = new QProgressBar(this);
  progress_->setRange(0, 1000);
  progress_->setFormat(tr("Indexing table… %p%"));
  progress_->setMaximumWidth(260);
  cancel_ = new QPushButton(tr("Cancel"), this);

  auto* bar = new QHBoxLayout;
  bar->addWidget(new QLabel(tr("Delimiter:"), this));
  bar->addWidget(picker_);
  bar->addWidget(custom_);
  bar->addWidget(customError_);
  bar->addSpacing(12);
  bar->addWidget(header_);
  bar->addStretch(1);
  bar->addWidget(progress_);
  bar->addWidget(cancel_);

  table_ = new CsvTableView(this);
  table_->setModel(model_);
  table_->setWordWrap(false);
  table_->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed |
                          QAbstractItemView::AnyKeyPressed);
  // Uniform rows: the view then never measures rows it does not show.
  table_->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
  table_->verticalHeader()->setDefaultSectionSize(table_->fontMetrics().height() + 6);
  table_->horizontalHeader()->setDefaultSectionSize(140);
  table_->horizontalHeader()->setSectionResizeMode(QHeaderView::Interactive);

  summary_ = new QLabel(this);
  message_ = new QLabel(this);
  message_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  auto* status = new QHBoxLayout;
  status->addWidget(summary_);
  status->addSpacing(16);
  status->addWidget(message_, 1);

  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(4, 4, 4, 4);
  layout->addLayout(bar);
  layout->addWidget(table_, 1);
  layout->addLayout(status);

  poll_ = new QTimer(this);
  poll_->setInterval(kPollMs);
  messageTimer_ = new QTimer(this);
  messageTimer_->setSingleShot(true);

  connect(poll_, &QTimer::timeout, this, &CsvGridView::poll);
  connect(messageTimer_, &QTimer::timeout, message_, &QLabel::clear);
  connect(picker_, &QComboBox::activated, this, &CsvGridView::pickerChanged);
  connect(custom_, &QLineEdit::returnPressed, this, [this] { applyCustomDelimiter(custom_->text()); });
  connect(header_, &QCheckBox::toggled, this, [this](bool on) {
    model_->setFirstRowIsHeader(on);
    updateSummary();
  });
  connect(cancel_, &QPushButton::clicked, this, [this] {
    if (model_->isBuilding()) {
      model_->cancelBuild();
    } else {
      model_->rebuild();
    }
  });
  connect(table_, &CsvTableView::editRefused, this, [this](const QString& text) {
    showMessage(text, model_->effectiveState() == csv::CSVParseState::degraded);
  });
  connect(model_, &CsvTableModel::statusMessage, this, &CsvGridView::showMessage);
  connect(model_, &CsvTableModel::buildStateChanged, this, &CsvGridView::updateBuildState);
  // Patches change the record count and the state outside of builds.
  connect(model_, &CsvTableModel::rowsInserted, this, &CsvGridView::updateSummary);
  connect(model_, &CsvTableModel::rowsRemoved, this, &CsvGridView::updateSummary);
  connect(model_, &CsvTableModel::dataChanged, this, &CsvGridView::updateSummary);
  connect(model_, &CsvTableModel::modelReset, this, &CsvGridView::updateSummary);
  connect(model_, &CsvTableModel::noLongerTable, this, [this](const QString& text) {
    showMessage(text, false);
    emit showingRawText(text);
  });
  updateBuildState();
}

CsvGridView::~CsvGridView() { model_->cancelBuild(); }

std::function<std::expected<int64_t, QString>(int64_t)> CsvGridView::recordResolver() const {
  QPointer<CsvTableModel> model(model_);
  return [model](int64_t record) -> std::expected<int64_t, QString> {
    if (!model) return std::unexpected(CsvTexts::viewClosed());
    return model->recordOffset(record);
  };
}

void CsvGridView::showRecord(int64_t record) {
  if (model_->rowCount() == 0) return;
  const auto row = static_cast<int>(std::clamp<int64_t>(record - 1, 0, model_->rowCount() - 1));
  showCell(model_->index(row, std::max(table_->currentIndex().column(), 0)));
}

void CsvGridView::showOffset(int64_t offset) {
  if (const auto cell = model_->cellAt(offset)) showCell(*cell);
}

void CsvGridView::showCell(const QModelIndex& cell) {
  table_->setCurrentIndex(cell);
  table_->scrollTo(cell, QAbstractItemView::PositionAtCenter);
}

void CsvGridView::pickerChanged(int item) {
  const bool custom = item == kCustomItem;
  custom_->setVisible(custom);
  customError_->setVisible(custom && !customError_->text().isEmpty());
  if (custom) {
    custom_->setFocus();
    return;
  }
  model_->setDelimiter(csv::CSVDelimiter::builtIns()[static_cast<size_t>(item)]);
}

bool CsvGridView::applyCustomDelimiter(const QString& typed) {
  const auto delimiter = csv::customDelimiter(typed.toStdString());
  if (!delimiter) {
    customError_->setText(q(delimiter.error()));
    customError_->show();
    return false;
  }
  customError_->clear();
  customError_->hide();
  model_->setDelimiter(*delimiter);
  // A typed built-in comes back as that built-in: show it under its own name.
  const auto builtIns = csv::CSVDelimiter::builtIns();
  for (int i = 0; i < static_cast<int>(builtIns.size()); ++i) {
    if (builtIns[static_cast<size_t>(i)] == *delimiter) {
      picker_->setCurrentIndex(i);
      custom_->hide();
    }
  }
  return true;
}

QString CsvGridView::customDelimiterError() const { return customError_->text(); }

QString CsvGridView::lastMessage() const { return message_->text(); }

void CsvGridView::showMessage(const QString& text, bool warning) {
  message_->setText(text);
  message_->setStyleSheet(warning ? QStringLiteral("color: #b00000; font-weight: bold;") : QString());
  messageTimer_->start(kMessageMs);
  emit statusMessage(text, warning);
}

void CsvGridView::updateBuildState() {
  const bool building = model_->isBuilding();
  progress_->setVisible(building);
  cancel_->setText(building ? tr("Cancel") : tr("Index Again"));
  cancel_->setVisible(building || model_->buildCancelled());
  if (building) {
    poll_->start();
  } else {
    poll_->stop();
  }
  poll();
}

void CsvGridView::poll() {
  model_->sync();
  if (auto fraction = model_->buildProgress()) progress_->setValue(static_cast<int>(*fraction * 1000));
  updateSummary();
}

void CsvGridView::updateSummary() {
  const QLocale locale;
  const int64_t records = model_->indexedRecords();
  QString text = CsvTexts::summary(records, model_->columnCount());
  if (model_->isBuilding()) {
    text += CsvTexts::soFar();
  } else if (auto state = model_->effectiveState()) {
    text += QStringLiteral(" · ") + q(csv::rawValue(*state));
  }
  summary_->setText(text);
  // Wide enough for the largest record number, whatever rows are in view.
  const QString widest = locale.toString(static_cast<qlonglong>(std::max<int64_t>(records, 1)));
  table_->verticalHeader()->setMinimumWidth(table_->fontMetrics().horizontalAdvance(widest) + 20);
}

}  // namespace quorin::app
