#pragma once

#include <QDialog>
#include <QFrame>
#include <expected>
#include <optional>

#include "storage/LargeFileOpenMode.h"

class QLabel;
class QRadioButton;
class QSpinBox;
class QWidget;

namespace quorin::app {

// One choice in the large-file dialog: a radio button with the mode's title
// and a description below it; a click anywhere on the card selects it.
class ModeCardView : public QFrame {
  Q_OBJECT

 public:
  ModeCardView(storage::LargeFileOpenMode mode, QWidget* parent = nullptr);
  storage::LargeFileOpenMode mode() const { return mode_; }
  QRadioButton* button() const { return button_; }
  void setSelected(bool selected);

 protected:
  void mousePressEvent(QMouseEvent* event) override;

 private:
  storage::LargeFileOpenMode mode_;
  QRadioButton* button_;
};

// The dialog shown before opening a file above the fast-open threshold: four
// mode cards, the slice and tail parameter rows (shown with their card), and
// Open / Cancel. Open validates the selected mode; a refusal is an alert with
// a single "OK" button and the dialog stays open.
class LargeFileController : public QDialog {
  Q_OBJECT

 public:
  LargeFileController(const QString& fileName, int64_t fileSize, int64_t thresholdBytes,
                      QWidget* parent = nullptr);

  // The validated request once the dialog was accepted.
  std::optional<storage::LargeFileOpenRequest> request() const { return accepted_; }

  // Exposed for tests and the screenshot script.
  void selectMode(storage::LargeFileOpenMode mode);
  storage::LargeFileOpenMode selectedMode() const { return selectedMode_; }
  QSpinBox* sliceStartField() const { return sliceStartField_; }
  QSpinBox* sliceEndField() const { return sliceEndField_; }
  QSpinBox* tailField() const { return tailField_; }
  QWidget* sliceParamsRow() const { return sliceParamsRow_; }
  QWidget* tailParamsRow() const { return tailParamsRow_; }
  // What Open would do: the request, or the alert text.
  std::expected<storage::LargeFileOpenRequest, QString> validate() const;
  // Open: validates, then accepts or shows the alert.
  void openRequested();

 private:
  int64_t fileSize_;
  storage::LargeFileOpenMode selectedMode_ = storage::LargeFileOpenMode::wholeFileVirtual;
  std::vector<ModeCardView*> modeCards_;
  QSpinBox* sliceStartField_;
  QSpinBox* sliceEndField_;
  QSpinBox* tailField_;
  QWidget* sliceParamsRow_;
  QWidget* tailParamsRow_;
  std::optional<storage::LargeFileOpenRequest> accepted_;
};

}  // namespace quorin::app
