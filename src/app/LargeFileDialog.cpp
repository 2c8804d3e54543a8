#include "app/LargeFileDialog.h"

#include <QCoreApplication>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QMouseEvent>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QVBoxLayout>

namespace quorin::app {
namespace {

using storage::LargeFileOpenMode;

QString qt(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

QSpinBox* megabyteField(int value, int minimum, QWidget* parent) {
  auto* field = new QSpinBox(parent);
  field->setRange(minimum, 1 << 30);
  field->setValue(value);
  field->setSuffix(QCoreApplication::translate("quorin::app::LargeFileController", " MB"));
  field->setMinimumWidth(110);
  return field;
}

}  // namespace

ModeCardView::ModeCardView(LargeFileOpenMode mode, QWidget* parent)
    : QFrame(parent), mode_(mode), button_(new QRadioButton(qt(storage::cardTitle(mode)), this)) {
  setFrameShape(QFrame::StyledPanel);
  setCursor(Qt::PointingHandCursor);
  QFont bold = button_->font();
  bold.setBold(true);
  button_->setFont(bold);
  auto* description = new QLabel(qt(storage::cardDescription(mode)), this);
  description->setWordWrap(true);
  description->setContentsMargins(24, 0, 0, 0);
  description->setForegroundRole(QPalette::PlaceholderText);
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(10, 8, 10, 8);
  layout->setSpacing(2);
  layout->addWidget(button_);
  layout->addWidget(description);
}

void ModeCardView::setSelected(bool selected) {
  button_->setChecked(selected);
  setBackgroundRole(selected ? QPalette::AlternateBase : QPalette::Window);
  setAutoFillBackground(selected);
}

void ModeCardView::mousePressEvent(QMouseEvent* event) {
  button_->click();
  event->accept();
}

LargeFileController::LargeFileController(const QString& fileName, int64_t fileSize, int64_t thresholdBytes,
                                         QWidget* parent)
    : QDialog(parent), fileSize_(fileSize) {
  setWindowTitle(tr("Open Large File"));
  auto* layout = new QVBoxLayout(this);
  auto* heading = new QLabel(tr("How should Quorin open “%1”?").arg(fileName), this);
  QFont headingFont = heading->font();
  headingFont.setBold(true);
  headingFont.setPointSizeF(headingFont.pointSizeF() * 1.15);
  heading->setFont(headingFont);
  layout->addWidget(heading);
  layout->addWidget(new QLabel(qt(storage::openModeExplanation(fileSize, thresholdBytes)), this));

  const int fileMB = static_cast<int>(
      std::min<int64_t>((fileSize + storage::kOpenModeMegabyte - 1) / storage::kOpenModeMegabyte, 1 << 30));
  sliceStartField_ = megabyteField(0, -(1 << 30), this);
  sliceEndField_ = megabyteField(std::min(fileMB, 256), -(1 << 30), this);
  tailField_ = megabyteField(std::min(fileMB, 64), -(1 << 30), this);

  auto addRow = [this](QWidget* card, std::initializer_list<std::pair<QString, QSpinBox*>> fields) {
    auto* row = new QWidget(card);
    auto* rowLayout = new QHBoxLayout(row);
    rowLayout->setContentsMargins(24, 4, 0, 0);
    for (const auto& [label, field] : fields) {
      rowLayout->addWidget(new QLabel(label, row));
      field->setParent(row);
      rowLayout->addWidget(field);
    }
    rowLayout->addStretch(1);
    card->layout()->addWidget(row);
    return row;
  };
  for (const LargeFileOpenMode mode : {LargeFileOpenMode::wholeFileVirtual, LargeFileOpenMode::windowedSlice,
                                       LargeFileOpenMode::tail, LargeFileOpenMode::readOnlyInspect}) {
    auto* card = new ModeCardView(mode, this);
    modeCards_.push_back(card);
    layout->addWidget(card);
    connect(card->button(), &QRadioButton::clicked, this, [this, mode] { selectMode(mode); });
    if (mode == LargeFileOpenMode::windowedSlice) {
      sliceParamsRow_ = addRow(card, {{tr("From"), sliceStartField_}, {tr("to"), sliceEndField_}});
    } else if (mode == LargeFileOpenMode::tail) {
      tailParamsRow_ = addRow(card, {{tr("Last"), tailField_}});
    }
  }
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Open | QDialogButtonBox::Cancel, this);
  buttons->button(QDialogButtonBox::Open)->setDefault(true);
  connect(buttons, &QDialogButtonBox::accepted, this, &LargeFileController::openRequested);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
  layout->addWidget(buttons);
  selectMode(LargeFileOpenMode::wholeFileVirtual);
  setMinimumWidth(520);
}

void LargeFileController::selectMode(LargeFileOpenMode mode) {
  selectedMode_ = mode;
  for (ModeCardView* card : modeCards_) card->setSelected(card->mode() == mode);
  sliceParamsRow_->setVisible(mode == LargeFileOpenMode::windowedSlice);
  tailParamsRow_->setVisible(mode == LargeFileOpenMode::tail);
  adjustSize();
}

std::expected<storage::LargeFileOpenRequest, QString> LargeFileController::validate() const {
  storage::LargeFileOpenRequest request{selectedMode_, sliceStartField_->value(), sliceEndField_->value(),
                                        tailField_->value()};
  if (auto checked = storage::validateOpenRequest(request, fileSize_); !checked) {
    return std::unexpected(QString::fromStdString(checked.error().describe()));
  }
  request.sliceStartMB = std::max<int64_t>(0, request.sliceStartMB);
  return request;
}

void LargeFileController::openRequested() {
  auto request = validate();
  if (!request) {
    QMessageBox alert(QMessageBox::Information, windowTitle(), request.error(), QMessageBox::Ok, this);
    alert.exec();
    return;
  }
  accepted_ = *request;
  accept();
}

}  // namespace quorin::app
