#include "app/bookmarks/MarkersDialog.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

#include "app/bookmarks/MarkerColors.h"

namespace quorin::app {
namespace {

enum Column { kPattern, kRegex, kCase, kWord, kColour, kOn, kColumns };

QTableWidgetItem* checkItem(bool on) {
  auto* item = new QTableWidgetItem;
  item->setFlags(Qt::ItemIsUserCheckable | Qt::ItemIsEnabled | Qt::ItemIsSelectable);
  item->setCheckState(on ? Qt::Checked : Qt::Unchecked);
  return item;
}

}  // namespace

MarkersDialog::MarkersDialog(const std::vector<bookmarks::MarkerRule>& rules, QWidget* parent)
    : QDialog(parent), table_(new QTableWidget(0, kColumns, this)) {
  setWindowTitle(tr("Markers"));
  table_->setHorizontalHeaderLabels(
      {tr("Pattern"), tr("Regex"), tr("Match Case"), tr("Whole Word"), tr("Colour"), tr("On")});
  table_->horizontalHeader()->setSectionResizeMode(kPattern, QHeaderView::Stretch);
  table_->verticalHeader()->hide();
  for (const auto& rule : rules) addRow(rule);

  auto* add = new QPushButton(tr("&Add"), this);
  auto* remove = new QPushButton(tr("&Remove"), this);
  connect(add, &QPushButton::clicked, this, [this] {
    addRow({.pattern = {}, .colour = bookmarks::nextFreeColour(this->rules())});
    table_->editItem(table_->item(table_->rowCount() - 1, kPattern));
  });
  connect(remove, &QPushButton::clicked, this, [this] {
    if (table_->currentRow() >= 0) table_->removeRow(table_->currentRow());
  });
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
  connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
  auto* row = new QHBoxLayout;
  row->addWidget(add);
  row->addWidget(remove);
  row->addStretch();
  row->addWidget(buttons);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(table_);
  layout->addLayout(row);
  resize(640, 320);
}

void MarkersDialog::addRow(const bookmarks::MarkerRule& rule) {
  const int row = table_->rowCount();
  table_->insertRow(row);
  table_->setItem(row, kPattern, new QTableWidgetItem(QString::fromStdString(rule.pattern)));
  table_->setItem(row, kRegex, checkItem(rule.regex));
  table_->setItem(row, kCase, checkItem(rule.caseSensitive));
  table_->setItem(row, kWord, checkItem(rule.wholeWord));
  table_->setItem(row, kOn, checkItem(rule.enabled));
  auto* colours = new QComboBox(table_);
  for (size_t i = 0; i < bookmarks::kMarkerColourNames.size(); ++i) {
    const auto colour = static_cast<bookmarks::MarkerColour>(i);
    QPixmap swatch(12, 12);
    swatch.fill(markerTint(colour, palette()));
    colours->addItem(QIcon(swatch), markerColourName(colour));
  }
  colours->setCurrentIndex(static_cast<int>(rule.colour));
  table_->setCellWidget(row, kColour, colours);
}

std::vector<bookmarks::MarkerRule> MarkersDialog::rules() const {
  std::vector<bookmarks::MarkerRule> rules;
  for (int row = 0; row < table_->rowCount(); ++row) {
    const QString pattern = table_->item(row, kPattern)->text();
    if (pattern.isEmpty()) continue;  // an empty pattern would mark nothing
    const auto checked = [&](int column) { return table_->item(row, column)->checkState() == Qt::Checked; };
    const auto* colours = qobject_cast<QComboBox*>(table_->cellWidget(row, kColour));
    rules.push_back({.pattern = pattern.toStdString(),
                     .regex = checked(kRegex),
                     .caseSensitive = checked(kCase),
                     .wholeWord = checked(kWord),
                     .colour = static_cast<bookmarks::MarkerColour>(colours ? colours->currentIndex() : 0),
                     .enabled = checked(kOn)});
  }
  return rules;
}

}  // namespace quorin::app
