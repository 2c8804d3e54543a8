#pragma once

#include <QMainWindow>
#include <QString>
#include <optional>

class QLabel;

namespace quorin::app {

class FirstScreenView;

// One document per window: File ▸ Open replaces what is shown. A file that
// cannot be opened leaves the current document in place.
class MainWindow : public QMainWindow {
  Q_OBJECT

 public:
  explicit MainWindow(QWidget* parent = nullptr);

  // Loads and shows `path`. Returns the user-facing reason on failure and
  // changes nothing then.
  std::optional<QString> openFile(const QString& path);
  // openFile, with a message box on failure.
  void openFileReportingErrors(const QString& path);

  const FirstScreenView& view() const { return *view_; }
  const QString& currentPath() const { return currentPath_; }

 private:
  void createMenus();
  void chooseAndOpenFile();

  FirstScreenView* view_;
  QLabel* coverageLabel_;
  QLabel* sizeLabel_;
  QLabel* encodingLabel_;
  QLabel* lineEndingLabel_;
  QString currentPath_;
};

}  // namespace quorin::app
