#include "app/bookmarks/BookmarksPanel.h"

#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTableView>
#include <QVBoxLayout>
#include <set>

#include "app/DocumentTab.h"
#include "app/bookmarks/BookmarkTexts.h"
#include "app/bookmarks/BookmarksModel.h"
#include "app/logs/LogPicturesWiring.h"
#include "app/view/TextView.h"
#include "persistence/SmallFile.h"

namespace quorin::app {

BookmarksPanel::BookmarksPanel(QWidget* parent)
    : QDockWidget(tr("Bookmarks"), parent),
      model_(new BookmarksModel(this)),
      table_(new QTableView(this)),
      count_(new QLabel(this)) {
  setObjectName(QStringLiteral("bookmarksPanel"));
  auto* body = new QWidget(this);
  auto* column = new QVBoxLayout(body);
  column->setContentsMargins(4, 2, 4, 4);
  column->setSpacing(2);
  auto* row = new QHBoxLayout;
  row->addWidget(count_, 1);
  auto* exportButton = new QPushButton(tr("Export CSV…"), body);
  exportButton->setToolTip(tr("Write the list as a CSV file: line, time, note, text"));
  row->addWidget(exportButton);
  column->addLayout(row);
  column->addWidget(table_, 1);
  setWidget(body);
  // Wide enough for a line number, a time and the start of a note when docked at a side.
  body->setMinimumWidth(fontMetrics().horizontalAdvance(QLatin1Char('x')) * 44);

  table_->setModel(model_);
  table_->setSelectionBehavior(QAbstractItemView::SelectRows);
  table_->setEditTriggers(QAbstractItemView::SelectedClicked | QAbstractItemView::EditKeyPressed |
                          QAbstractItemView::AnyKeyPressed);
  table_->setWordWrap(false);
  table_->setTextElideMode(Qt::ElideRight);
  table_->verticalHeader()->hide();
  // Fixed row heights: the view asks the model for the rows on screen only.
  table_->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
  table_->verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 4);
  table_->horizontalHeader()->setStretchLastSection(true);
  table_->setColumnWidth(BookmarksModel::lineColumn,
                         fontMetrics().horizontalAdvance(QStringLiteral("99,999,999")) + 12);
  table_->setColumnWidth(BookmarksModel::timeColumn,
                         fontMetrics().horizontalAdvance(QStringLiteral("2026-03-20 12:00:01.250")) + 12);
  table_->setColumnWidth(BookmarksModel::noteColumn, fontMetrics().horizontalAdvance(QLatin1Char('x')) * 48);
  table_->installEventFilter(this);
  connect(table_, &QTableView::doubleClicked, this, [this](const QModelIndex& index) {
    if (index.column() != BookmarksModel::noteColumn || model_->isLost(index.row())) goToRow(index.row());
  });
  connect(exportButton, &QPushButton::clicked, this, &BookmarksPanel::chooseAndExport);
  connect(model_, &QAbstractItemModel::modelReset, this, &BookmarksPanel::updateCount);
  updateCount();
}

void BookmarksPanel::showTab(DocumentTab* tab) { model_->showTab(tab); }

void BookmarksPanel::updateCount() {
  const int rows = model_->rowCount();
  const QString total = rows == 1 ? tr("1 bookmark") : tr("%1 bookmarks").arg(groupedNumber(rows));
  count_->setText(model_->tab() ? total : tr("No document"));
}

void BookmarksPanel::goToRow(int row) {
  DocumentTab* tab = model_->tab();
  const auto line = model_->lineAt(row);
  if (!tab || !line) return;
  goToLine(tab, *line);
  tab->view()->setFocus();
}

void BookmarksPanel::removeSelected() {
  DocumentTab* tab = model_->tab();
  if (!tab) return;
  std::set<int64_t> lines, lost;
  for (const QModelIndex& index : table_->selectionModel()->selectedRows()) {
    if (const auto line = model_->lineAt(index.row())) lines.insert(*line);
    if (const auto line = model_->lostLineAt(index.row())) lost.insert(*line);
  }
  for (const int64_t line : lines) tab->bookmarks().remove(line);
  for (const int64_t line : lost) tab->forgetLostBookmark(line);
}

bool BookmarksPanel::eventFilter(QObject* watched, QEvent* event) {
  // Keys for the list itself, not those a note's editor left unused.
  if (watched == table_ && event->type() == QEvent::KeyPress && table_->hasFocus()) {
    const int key = static_cast<QKeyEvent*>(event)->key();
    if (key == Qt::Key_Return || key == Qt::Key_Enter) {
      goToRow(table_->currentIndex().row());
      return true;
    }
    if (key == Qt::Key_Delete || key == Qt::Key_Backspace) {
      removeSelected();
      return true;
    }
  }
  return QDockWidget::eventFilter(watched, event);
}

std::optional<QString> BookmarksPanel::exportCsv(const QString& path) const {
  const auto written =
      persistence::writeFileAtomically(QFile::encodeName(path).toStdString(), model_->toCsv());
  if (written) return std::nullopt;
  return QString::fromStdString(written.error().describe());
}

void BookmarksPanel::chooseAndExport() {
  DocumentTab* tab = model_->tab();
  if (!tab) return;
  const QString suggested =
      tab->path().isEmpty() ? tr("bookmarks.csv") : tab->path() + QStringLiteral(".bookmarks.csv");
  const QString path =
      QFileDialog::getSaveFileName(this, tr("Export Bookmarks"), suggested, tr("CSV (*.csv)"));
  if (path.isEmpty()) return;
  if (const auto error = exportCsv(path)) {
    QMessageBox box(QMessageBox::Warning, QStringLiteral("Quorin"),
                    tr("“%1” could not be written.").arg(QFileInfo(path).fileName()), QMessageBox::Ok, this);
    box.setInformativeText(*error);
    box.exec();
  }
}

}  // namespace quorin::app
